# The flags that decide bits, the same in every build type and for every object whose arithmetic is
# compared: no fusing of separate multiplications and additions (g++ fuses even the intrinsics'),
# and nothing folded at compile time that depends on the rounding mode.
add_library(exact_arithmetic INTERFACE)
target_compile_options(exact_arithmetic INTERFACE -ffp-contract=off -frounding-math)

# The instruction set of the pixel code: src/kernel, src/quartet, src/border and client/pixels alone.
add_library(avx2_pixel_code INTERFACE)
target_compile_options(avx2_pixel_code INTERFACE -mavx2 -mfma)
# g++ schedules after the allocation of registers only, and leaves the chains of an angle one behind
# the other; with this, sets with angles gain about 4 per cent.
target_compile_options(avx2_pixel_code
                       INTERFACE $<$<CXX_COMPILER_ID:GNU>:-fschedule-insns -fsched-pressure>)
target_link_libraries(avx2_pixel_code INTERFACE exact_arithmetic)
