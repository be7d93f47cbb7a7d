# talven_add_library(NAME HEADERS ... SOURCES ... [LINKS ...])
#
# One layer: static library talven_NAME, alias talven::NAME. Headers are a file set whose base is
# the repository, so that #include "Util/Util_Time.h" is written the same everywhere.
function(talven_add_library NAME)
  cmake_parse_arguments(ARG "" "" "HEADERS;SOURCES;LINKS" ${ARGN})
  add_library(talven_${NAME} STATIC ${ARG_SOURCES})
  add_library(talven::${NAME} ALIAS talven_${NAME})
  target_sources(talven_${NAME} PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR}
                                       FILES ${ARG_HEADERS})
  target_link_libraries(talven_${NAME} PUBLIC ${ARG_LINKS} PRIVATE $<BUILD_INTERFACE:talven_options>)
endfunction()

# talven_add_test(NAME LABELS ... SOURCES ... [LINKS ...] [TIMEOUT seconds])
#
# One GoogleTest program. Every test case becomes a CTest test with the labels given: unit, wire,
# job, slow or cuda.
function(talven_add_test NAME)
  cmake_parse_arguments(ARG "" "TIMEOUT" "LABELS;SOURCES;LINKS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  add_executable(${NAME} ${ARG_SOURCES})
  target_include_directories(${NAME} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${NAME} PRIVATE ${ARG_LINKS} GTest::gtest_main
                                        $<BUILD_INTERFACE:talven_options>)
  gtest_discover_tests(${NAME} DISCOVERY_TIMEOUT 60
                       PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT ${ARG_TIMEOUT})
endfunction()
