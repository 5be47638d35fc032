# vxctl's keyset text commands as a user runs them, with a configuration
# folder of their own and no session bus: export and import of the example
# file (byte for byte), install of a preset and of a file (replacing by
# signature, with backups), and the mistakes: each named, nothing written.
set(work ${WORK_DIR}/keyset-text)
file(REMOVE_RECURSE ${work})
file(MAKE_DIRECTORY ${work})
set(config ${work}/config/velorix)
set(ENV{XDG_CONFIG_HOME} ${work}/config)
set(ENV{DBUS_SESSION_BUS_ADDRESS} unix:path=${work}/no-bus)

function(vxctl expect_rc)
    execute_process(COMMAND ${VXCTL} ${ARGN} OUTPUT_VARIABLE out ERROR_VARIABLE err
                    RESULT_VARIABLE rc WORKING_DIRECTORY ${work})
    if(NOT rc EQUAL expect_rc)
        message(FATAL_ERROR "vxctl ${ARGN} exited with ${rc}, expected ${expect_rc}\n${out}${err}")
    endif()
    set(out "${out}" PARENT_SCOPE)
    set(err "${err}" PARENT_SCOPE)
endfunction()

function(expect text pattern)
    if(NOT "${text}" MATCHES "${pattern}")
        message(FATAL_ERROR "expected '${pattern}' in:\n${text}")
    endif()
endfunction()

# The example file to text and back, byte for byte.
vxctl(0 keyset export ${SOURCE_DIR}/examples/example.prefs -o example.toml)
vxctl(0 keyset import example.toml -o example.prefs)
file(SHA256 ${SOURCE_DIR}/examples/example.prefs want)
file(SHA256 ${work}/example.prefs got)
if(NOT want STREQUAL got)
    message(FATAL_ERROR "export and import of examples/example.prefs changed it")
endif()

# A mistake: named with its place, and no file written.
file(WRITE ${work}/broken.toml "[[keyset]]\nname = \"B\"\nsignature = \"BRKN\"\nmode = 5\n[keyset.buttons.play]\nactions = [ { type = \"key\", key = \"Spaec\" } ]\n")
vxctl(1 keyset import broken.toml -o broken.prefs)
expect("${err}" "^vxctl keyset import: broken.toml:6:35: unknown key name 'Spaec'")
if(EXISTS ${work}/broken.prefs)
    message(FATAL_ERROR "a file with a mistake was imported")
endif()

# Install into an empty folder: a "Default" keyset first, then the preset;
# no driver to upload to.
vxctl(0 keyset install midi --signature ARDR)
expect("${out}" "added keyset 1 \"MIDI\" \\(ARDR\\)\n")
expect("${out}" "vxd is not running: it reads the keysets when it starts\n$")
vxctl(0 keyset dump "${config}/VX USB Prefs")
expect("${out}" "keyset 0 \"Default\" signature '\\?\\?\\?\\?'")
expect("${out}" "keyset 1 \"MIDI\" signature 'ARDR'")
# The same signature again replaces it where it stands, keeping a backup.
vxctl(0 keyset install transport-keys --signature ARDR)
expect("${out}" "replaced keyset 1 \"Transport keys\" \\(ARDR\\)\n")
foreach(f "VX USB Prefs.bak" keysets.toml.bak)
    if(NOT EXISTS "${config}/${f}")
        message(FATAL_ERROR "no ${f} after a second install")
    endif()
endforeach()
file(READ ${config}/keysets.toml installed)
expect("${installed}" "name = \"Transport keys\"")
if(installed MATCHES "name = \"MIDI\"")
    message(FATAL_ERROR "the replaced keyset is still in keysets.toml")
endif()
# A broken file or a wrong option changes nothing.
vxctl(1 keyset install broken.toml)
expect("${err}" "broken.toml:6:35: unknown key name 'Spaec'")
vxctl(1 keyset install example.toml --signature ABCD)
expect("${err}" "--signature takes a file of one keyset; 'example.toml' holds 3")
vxctl(1 keyset install no-such-preset)
expect("${err}" "no file or preset 'no-such-preset' \\(presets: midi, mode-b, mode-c, transport-keys\\)")
file(READ ${config}/keysets.toml after)
if(NOT after STREQUAL installed)
    message(FATAL_ERROR "a failed install changed keysets.toml")
endif()

# sync without a bus says so and sends nothing.
vxctl(1 keyset sync --wait 0)
expect("${err}" "^vxctl keyset sync: ")
file(REMOVE_RECURSE ${work})
