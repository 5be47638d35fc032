# vxctl against the shipped examples: the capture decoded to records, the same
# capture replayed through two of the example keysets, and the keyset file
# itself.
# The expected outputs were worked out by hand from the wire and keyset formats.
function(run_vxctl out_var expect_rc)
    execute_process(COMMAND ${VXCTL} ${ARGN} OUTPUT_VARIABLE out RESULT_VARIABLE rc
                    WORKING_DIRECTORY ${SOURCE_DIR})
    if(NOT rc EQUAL expect_rc)
        message(FATAL_ERROR "vxctl ${ARGN} exited with ${rc}, expected ${expect_rc}")
    endif()
    set(${out_var} "${out}" PARENT_SCOPE)
endfunction()

function(expect_same actual expected_file what)
    file(READ ${SOURCE_DIR}/${expected_file} expected)
    if(NOT actual STREQUAL expected)
        message(FATAL_ERROR "${what} differs.\n--- expected\n${expected}--- actual\n${actual}")
    endif()
endfunction()

run_vxctl(records 0 decode --records examples/capture.hex)
expect_same("${records}" examples/capture.records "vxctl decode --records")

run_vxctl(replay 0 decode --prefs examples/example.prefs --app DAW1 examples/capture.hex)
expect_same("${replay}" examples/capture-daw.out "vxctl decode with the example keysets")

# The Mixer keyset's two-way MIDI actions: rate-limited sends, and the host's
# fader and LED messages answered with the surface's own.
run_vxctl(mixer 0 decode --prefs examples/example.prefs --app MIX1 examples/capture.hex)
expect_same("${mixer}" examples/capture-mixer.out "vxctl decode with the Mixer keyset")

# The shipped keyset file is what `vxctl keyset example` writes, and it loads whole.
set(fresh ${CMAKE_CURRENT_BINARY_DIR}/example-fresh.prefs)
run_vxctl(ignored 0 keyset example ${fresh})
file(SHA256 ${fresh} fresh_hash)
file(SHA256 ${SOURCE_DIR}/examples/example.prefs shipped_hash)
if(NOT fresh_hash STREQUAL shipped_hash)
    message(FATAL_ERROR "examples/example.prefs is out of date: run vxctl keyset example")
endif()
run_vxctl(dump 0 keyset dump examples/example.prefs)
if(NOT dump MATCHES "keyset 1 \"DAW\" signature 'DAW1' emulation mode 0")
    message(FATAL_ERROR "keyset dump lacks the DAW keyset:\n${dump}")
endif()

# A file cut short does not load whole: the dump says so by its exit status.
set(cut ${CMAKE_CURRENT_BINARY_DIR}/example-cut.prefs)
execute_process(COMMAND head -c 1000 ${SOURCE_DIR}/examples/example.prefs OUTPUT_FILE ${cut})
run_vxctl(ignored 1 keyset dump ${cut})
