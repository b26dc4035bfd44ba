# Compile options shared by every target of ours, and helpers that turn a folder into a target.

set(KORBANHOLD_WARNINGS -Wall -Wextra)
if(KORBANHOLD_SANITIZE)
  string(REPLACE ";" "," _sanitizers "${KORBANHOLD_SANITIZE}")
  add_compile_options(-fsanitize=${_sanitizers} -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=${_sanitizers})
  if("thread" IN_LIST KORBANHOLD_SANITIZE)
    # Asio's handler fences are std::atomic_thread_fence, which ThreadSanitizer cannot model (GCC warns -Wtsan); the
    # scheduler's mutex already orders a handler's state between threads, and that is what the sanitizer follows.
    add_compile_definitions(BOOST_ASIO_DISABLE_FENCED_BLOCK)
    # The same warning still comes from fences inside Asio's and the standard library's headers, which we do not
    # compile differently; our own code has none.
    add_compile_options(-Wno-tsan)
  endif()
endif()
if(KORBANHOLD_FUZZ)
  # Coverage instrumentation in every library too, so that libFuzzer sees the code under test, not only the target.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# korbanhold_library(NAME FOLDER DEPS...): one static library from every .cpp in a source folder.
function(korbanhold_library name folder)
  file(GLOB _sources CONFIGURE_DEPENDS ${folder}/*.cpp)
  if(NOT _sources)
    # A layer that has no code yet still exists, so that the layers above can name it.
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} INTERFACE ${ARGN})
    return()
  endif()
  add_library(${name} STATIC ${_sources})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_compile_options(${name} PRIVATE ${KORBANHOLD_WARNINGS})
  target_link_libraries(${name} PUBLIC ${ARGN})
endfunction()

# korbanhold_tests(NAME FOLDER DEPS...): one GoogleTest executable from every .cpp in a test folder.
function(korbanhold_tests name folder)
  file(GLOB _sources CONFIGURE_DEPENDS ${folder}/*.cpp)
  if(NOT _sources)
    return()
  endif()
  add_executable(${name} ${_sources})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_options(${name} PRIVATE ${KORBANHOLD_WARNINGS})
  target_link_libraries(${name} PRIVATE korbanhold_testsupport ${ARGN} GTest::gtest GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES ENVIRONMENT "KORBANHOLD_BINARY_DIR=${PROJECT_BINARY_DIR}")
endfunction()
