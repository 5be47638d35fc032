# `cmake --install` with the prefix a Debian user gives it: every file lands
# where udev and systemd read it, and the unit starts the installed vxd.
set(root ${BINARY_DIR}/install-check)
file(REMOVE_RECURSE ${root})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix /usr
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "cmake --install failed with ${rc}")
endif()
foreach(f usr/bin/vxd usr/bin/vxctl usr/lib/udev/rules.d/70-velorix-surface.rules
          usr/lib/systemd/user/vxd.service usr/share/dbus-1/services/org.velorix.Driver.service
          usr/share/dbus-1/interfaces/org.velorix.Driver1.xml)
    if(NOT EXISTS ${root}/${f})
        message(FATAL_ERROR "/${f} was not installed")
    endif()
endforeach()
# The unit starts the installed vxd, and after every start sends the
# transport buttons' assignments.
file(STRINGS ${root}/usr/lib/systemd/user/vxd.service exec REGEX "^Exec")
if(NOT exec STREQUAL "ExecStart=/usr/bin/vxd;ExecStartPost=-/usr/bin/vxctl keyset sync")
    message(FATAL_ERROR "the unit says '${exec}'")
endif()
# The bus starts the installed vxd, through the user unit where systemd runs,
# else itself with the same sync beside it.
file(STRINGS ${root}/usr/share/dbus-1/services/org.velorix.Driver.service activation
     REGEX "^(Exec|SystemdService)=")
set(want "Exec=/bin/sh -c '/usr/bin/vxctl keyset sync --wait 10 >/dev/null 2>&1 & exec /usr/bin/vxd'")
if(NOT activation STREQUAL "${want};SystemdService=vxd.service")
    message(FATAL_ERROR "the D-Bus service file says '${activation}'")
endif()
# The presets that `vxctl keyset install NAME` finds beside vxctl.
foreach(preset midi mode-b mode-c transport-keys)
    if(NOT EXISTS ${root}/usr/share/vxd/presets/${preset}.toml)
        message(FATAL_ERROR "the preset ${preset} was not installed")
    endif()
endforeach()
# Each of the three identities gets uaccess, and nothing else is granted.
file(STRINGS ${root}/usr/lib/udev/rules.d/70-velorix-surface.rules rules REGEX "^SUBSYSTEM")
set(ids)
foreach(rule ${rules})
    if(NOT rule MATCHES "ATTR\\{idVendor\\}==\"([0-9a-f]+)\", ATTR\\{idProduct\\}==\"([0-9a-f]+)\", TAG\\+=\"uaccess\"$")
        message(FATAL_ERROR "unexpected rule: ${rule}")
    endif()
    list(APPEND ids "${CMAKE_MATCH_1}:${CMAKE_MATCH_2}")
endforeach()
if(NOT ids STREQUAL "0760:0008;0760:0002;0403:6001")
    message(FATAL_ERROR "the rule covers ${ids}")
endif()
file(REMOVE_RECURSE ${root})
