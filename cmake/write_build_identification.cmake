# Run at build time:
#   cmake -D STATE=... -D TEMPLATE=... -D OUTPUT=... -D VERSION=... -D SOURCE=... -P
# With STATE alone it records what the identification depends on besides the objects and touches the
# file only if that changed; with OUTPUT it writes the identification.
cmake_minimum_required(VERSION 3.25)

# An archive of the sources, or a checkout inside somebody else's, has no commit of its own.
set(COMMIT 0000000)
execute_process(
  COMMAND git -C ${SOURCE} rev-parse --show-toplevel HEAD
  OUTPUT_VARIABLE answer OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
if(NOT failed)
  string(REPLACE "\n" ";" answer "${answer}")
  list(GET answer 0 top_level)
  list(GET answer 1 head)
  file(REAL_PATH ${SOURCE} source)
  if(source STREQUAL top_level)
    string(SUBSTRING ${head} 0 7 COMMIT)
  endif()
endif()

if(DEFINED OUTPUT)
  # Honours SOURCE_DATE_EPOCH.
  string(TIMESTAMP BUILD_TIME "%Y-%m-%dT%H:%M:%S" UTC)
  configure_file(${TEMPLATE} ${OUTPUT} @ONLY)
else()
  file(CONFIGURE OUTPUT ${STATE} CONTENT "${COMMIT} ${VERSION} $ENV{SOURCE_DATE_EPOCH}\n")
endif()
