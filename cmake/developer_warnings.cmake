# Warnings for the project's own code. Linked privately and never exported, so that a program that
# uses the library keeps its own choice.
add_library(developer_warnings INTERFACE)
target_compile_options(developer_warnings INTERFACE -Wall -Wextra -Wconversion -Wsign-conversion
                                                    -Wshadow -Wcast-align)
if(VELDRANE_WARNINGS_AS_ERRORS)
  target_compile_options(developer_warnings INTERFACE -Werror)
endif()
