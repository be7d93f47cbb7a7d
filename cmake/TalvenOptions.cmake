option(TALVEN_TESTS "Build the tests" ${PROJECT_IS_TOP_LEVEL})
option(TALVEN_BENCH "Build the benchmarks" ${PROJECT_IS_TOP_LEVEL})
option(TALVEN_FUZZ "Build the fuzz targets, which replay files without libFuzzer" ${PROJECT_IS_TOP_LEVEL})
option(TALVEN_LIBFUZZER "Link the fuzz targets with libFuzzer (clang)" OFF)
option(TALVEN_HOST_BASELINE_ONLY "Host kernels for the plainest instruction set only" OFF)
option(TALVEN_PYTHON_PACKAGE "Build the Python package (needs nanobind)" OFF)
option(TALVEN_PROGRAM "Build the talven program, not only its library" ON)
option(TALVEN_WERROR "Treat warnings as errors" OFF)
option(TALVEN_PORTABLE "Programs that run where the C++ library is older than here" OFF)
set(TALVEN_SANITIZE "" CACHE STRING "Sanitizers for all targets, for example address,undefined")

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# All programs side by side: the client looks for the server beside itself.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

# Warnings and sanitizers of every target of ours; never exported.
add_library(talven_options INTERFACE)
set(TALVEN_CXX_OPTIONS -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2
                       -Wundef)
if(TALVEN_WERROR)
  list(APPEND TALVEN_CXX_OPTIONS -Werror)
endif()
if(TALVEN_SANITIZE)
  list(APPEND TALVEN_CXX_OPTIONS -fsanitize=${TALVEN_SANITIZE} -fno-omit-frame-pointer
       -fno-sanitize-recover=all)
endif()
target_compile_options(talven_options INTERFACE "$<$<COMPILE_LANGUAGE:CXX>:${TALVEN_CXX_OPTIONS}>")
# libgcc stays shared: every system has it, and the static one asks for a newer C library.
if(TALVEN_PORTABLE)
  add_link_options(-static-libstdc++ -Wl,--gc-sections)
endif()
if(TALVEN_SANITIZE)
  target_link_options(talven_options INTERFACE -fsanitize=${TALVEN_SANITIZE})
endif()
