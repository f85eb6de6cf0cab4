# Thread sanitizer over everything, the dependencies included: an uninstrumented libuv would hide the order that
# its locks and its wake-ups make, and races with it.
set(CMAKE_C_COMPILER clang-14)
set(CMAKE_CXX_COMPILER clang++-14)

set(SONVIA_SANITIZER thread CACHE STRING "The sanitizer that everything is built with")
set(sanitize "-fsanitize=thread -fno-omit-frame-pointer -O1")
set(CMAKE_C_FLAGS_INIT "${sanitize}")
set(CMAKE_CXX_FLAGS_INIT "${sanitize}")

# How tests run: see scripts/run-sanitized.
set(SONVIA_TEST_LAUNCHER "${CMAKE_CURRENT_LIST_DIR}/../../scripts/run-sanitized")

# To optimise all these checks takes longer than to run them as they are.
set(SONVIA_TEST_OPTIONS -O0)

# Links in a fifth of the time.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld")
