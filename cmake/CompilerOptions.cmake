# One interface target carries the compiler options of every target of the project.
#
# -ffp-contract=off, and never -ffast-math: results are the same bits on every compiler and processor.
add_library(fleifeisa_options INTERFACE)
target_compile_options(fleifeisa_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  $<$<BOOL:${FLEIFEISA_WERROR}>:-Werror>
  -ffp-contract=off)

if(FLEIFEISA_SANITIZE)
  target_compile_options(fleifeisa_options INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(fleifeisa_options INTERFACE -fsanitize=address,undefined)
elseif(FLEIFEISA_HARDEN)
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  target_compile_options(fleifeisa_options INTERFACE
    -fstack-protector-strong $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  target_link_options(fleifeisa_options INTERFACE
    $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie> -Wl,-z,relro,-z,now)
endif()

if(FLEIFEISA_INVARIANTS OR FLEIFEISA_SANITIZE OR FLEIFEISA_BUILD_FUZZ)
  target_compile_definitions(fleifeisa_options INTERFACE FLEIFEISA_CHECK_INVARIANTS=1)
else()
  target_compile_definitions(fleifeisa_options INTERFACE $<$<CONFIG:Debug>:FLEIFEISA_CHECK_INVARIANTS=1>)
endif()

if(FLEIFEISA_BUILD_FUZZ)
  target_compile_options(fleifeisa_options INTERFACE -fsanitize=fuzzer-no-link)
  target_compile_definitions(fleifeisa_options INTERFACE FLEIFEISA_SMALL_TABLES=1)
endif()
