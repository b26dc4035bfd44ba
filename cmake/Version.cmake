# The commit a build comes from, read once when configuring and baked into every program's --version. A source tree
# that is not a git checkout of its own (a release tarball, even one unpacked inside another repository) says so
# instead of borrowing a commit that is not its own.
find_package(Git QUIET)
set(KORBANHOLD_COMMIT "")
if(GIT_FOUND)
  execute_process(COMMAND ${GIT_EXECUTABLE} -C ${PROJECT_SOURCE_DIR} rev-parse --show-toplevel
    OUTPUT_VARIABLE _toplevel OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE _git_status)
  if(_git_status EQUAL 0)
    file(REAL_PATH "${_toplevel}" _toplevel)
    file(REAL_PATH "${PROJECT_SOURCE_DIR}" _source)
    if(_toplevel STREQUAL _source)
      execute_process(COMMAND ${GIT_EXECUTABLE} -C ${PROJECT_SOURCE_DIR} rev-parse --short=12 HEAD
        OUTPUT_VARIABLE KORBANHOLD_COMMIT OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    endif()
  endif()
endif()
if(KORBANHOLD_COMMIT)
  set(KORBANHOLD_COMMIT_TEXT "commit ${KORBANHOLD_COMMIT}")
else()
  set(KORBANHOLD_COMMIT_TEXT "commit unknown: built outside a git checkout")
endif()
message(STATUS "Korbanhold ${PROJECT_VERSION}, ${KORBANHOLD_COMMIT_TEXT}")
