# Runs vxctl decode --records over the shipped example capture and compares the
# output with the expected records, worked out by hand from the wire format.
execute_process(COMMAND ${VXCTL} decode --records ${SOURCE_DIR}/examples/capture.hex
                OUTPUT_VARIABLE actual RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "vxctl decode exited with ${rc}")
endif()
file(READ ${SOURCE_DIR}/examples/capture.records expected)
if(NOT actual STREQUAL expected)
    message(FATAL_ERROR "vxctl decode --records output differs.\n--- expected\n${expected}--- actual\n${actual}")
endif()
