# The build machine's own compiler, optimised: benchmarks judge the code with this one.
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
