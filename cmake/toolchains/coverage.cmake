# Counts which lines and branches are reached. Unoptimised, so that a line of the source stays one of the program; with
# atomic counters, because the loop, the log's writer and the host count at the same time.
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)

set(CMAKE_CXX_FLAGS_INIT "--coverage -fprofile-update=atomic -O0")
