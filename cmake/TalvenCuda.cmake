# Whether the CUDA backend is built, and for which GPUs.
#
# TALVEN_HAVE_CUDA: it is. TALVEN_CUDA_ARCHITECTURES: code for the first architecture of every
# generation from 7.5 on, which runs on the later ones of its generation too, and PTX of the newest
# for what comes after it.
set(TALVEN_CUDA AUTO CACHE STRING "Build the CUDA backend: AUTO (where nvcc is found), ON, OFF")
set_property(CACHE TALVEN_CUDA PROPERTY STRINGS AUTO ON OFF)

set(TALVEN_HAVE_CUDA OFF)
if(NOT TALVEN_CUDA STREQUAL "OFF")
  include(CheckLanguage)
  check_language(CUDA)
  if(CMAKE_CUDA_COMPILER)
    set(TALVEN_HAVE_CUDA ON)
  elseif(NOT TALVEN_CUDA STREQUAL "AUTO")
    message(FATAL_ERROR "TALVEN_CUDA is ON, but no CUDA compiler was found (set CUDACXX)")
  endif()
endif()

if(TALVEN_HAVE_CUDA)
  if(NOT DEFINED CMAKE_CUDA_ARCHITECTURES)
    set(CMAKE_CUDA_ARCHITECTURES OFF)  # every target says its own
  endif()
  enable_language(CUDA)
  if(NOT CMAKE_CUDA20_STANDARD_COMPILE_OPTION)  # CMake 3.25 does not know it yet
    set(CMAKE_CUDA20_STANDARD_COMPILE_OPTION "-std=c++20")
    set(CMAKE_CUDA20_EXTENSION_COMPILE_OPTION "-std=c++20")
  endif()
  find_package(CUDAToolkit 12.0 REQUIRED)

  if(NOT DEFINED TALVEN_CUDA_ARCHITECTURES)
    execute_process(COMMAND ${CMAKE_CUDA_COMPILER} --list-gpu-arch
                    OUTPUT_VARIABLE KNOWN COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX MATCHALL "[0-9]+" KNOWN "${KNOWN}")
    list(SORT KNOWN COMPARE NATURAL)
    set(LIST "")
    set(GENERATION "")
    foreach(ARCH ${KNOWN})
      math(EXPR MAJOR "${ARCH} / 10")
      if(ARCH GREATER_EQUAL 75 AND NOT MAJOR STREQUAL GENERATION)
        list(APPEND LIST ${ARCH}-real)
        set(GENERATION ${MAJOR})
        set(NEWEST ${ARCH})
      endif()
    endforeach()
    set(TALVEN_CUDA_ARCHITECTURES "${LIST};${NEWEST}-virtual"
        CACHE STRING "GPUs that the CUDA backend is compiled for")
  endif()

  # The same sums on every device: multiply-adds are fused only where the source says so.
  set(OPTIONS --fmad=false -Xcompiler=-Wall,-Wextra)
  if(TALVEN_WERROR)
    list(APPEND OPTIONS -Werror=all-warnings -Xcompiler=-Werror)
  endif()
  add_compile_options("$<$<COMPILE_LANGUAGE:CUDA>:${OPTIONS}>")
  message(STATUS "CUDA backend for ${TALVEN_CUDA_ARCHITECTURES}")
else()
  message(STATUS "CUDA backend: not built")
endif()
