# libFuzzer's coverage instrumentation with both sanitizers, over everything; a fuzz target adds the driver when
# it links (-fsanitize=fuzzer).
set(CMAKE_C_COMPILER clang-14)
set(CMAKE_CXX_COMPILER clang++-14)

set(sanitize "-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer -O1")
set(CMAKE_C_FLAGS_INIT "${sanitize}")
set(CMAKE_CXX_FLAGS_INIT "${sanitize}")
