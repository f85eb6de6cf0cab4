# Address and undefined-behaviour sanitizers over everything, the dependencies included; the first report ends the
# program. The coverage instrumentation is libFuzzer's: a fuzz target adds the driver when it links (-fsanitize=fuzzer),
# the tests take no notice of it.
set(CMAKE_C_COMPILER clang-14)
set(CMAKE_CXX_COMPILER clang++-14)

set(SONVIA_SANITIZER address CACHE STRING "The sanitizer that everything is built with")
set(sanitize "-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer -O1")
set(CMAKE_C_FLAGS_INIT "${sanitize}")
set(CMAKE_CXX_FLAGS_INIT "${sanitize}")

# How tests run: see scripts/run-sanitized.
set(SONVIA_TEST_LAUNCHER "${CMAKE_CURRENT_LIST_DIR}/../../scripts/run-sanitized")

# To optimise all these checks takes longer than to run them as they are; and the fuzzers need not know which lines of a
# test they reach.
set(SONVIA_TEST_OPTIONS -O0 -fno-sanitize=fuzzer-no-link)

# Links in a fifth of the time.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld")
