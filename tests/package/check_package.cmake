# Installs the built project into a scratch prefix and builds a small consumer against it with
# find_package(vx), so that the exported package stays usable.
file(REMOVE_RECURSE ${WORK_DIR})
set(linker_flags "")
if(SANITIZE)
  set(linker_flags "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=${SANITIZE}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix ${WORK_DIR}/prefix
  RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "install failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/package/consumer -B ${WORK_DIR}/build
  -G Ninja -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_CXX_COMPILER=${CXX}
  ${linker_flags} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "consumer configure failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "consumer build failed")
endif()
execute_process(COMMAND ${WORK_DIR}/build/consumer RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "consumer run failed")
endif()
