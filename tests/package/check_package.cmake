# Installs the built project into a scratch prefix and builds and runs the README's C++ examples
# against it with find_package(vx), so that the exported package and the examples stay usable.
file(REMOVE_RECURSE ${WORK_DIR})
set(consumer_arguments -G Ninja -DCMAKE_CXX_COMPILER=${CXX})
if(SANITIZE)
  list(APPEND consumer_arguments "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=${SANITIZE}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix ${WORK_DIR}/prefix
  RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "install failed")
endif()
execute_process(COMMAND bash ${SOURCE_DIR}/tests/package/check_readme_examples.sh
  ${WORK_DIR}/prefix ${WORK_DIR}/examples ${consumer_arguments} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "the README's examples do not build or run against the install")
endif()
