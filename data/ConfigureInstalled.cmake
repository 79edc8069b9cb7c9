# Runs when installing, from data/CMakeLists.txt: CMAKE_INSTALL_PREFIX is the
# prefix of this install.
if(IS_ABSOLUTE "${TESSEL_BINDIR}")
    set(bindir "${TESSEL_BINDIR}")
else()
    set(bindir "${CMAKE_INSTALL_PREFIX}/${TESSEL_BINDIR}")
endif()
cmake_path(NORMAL_PATH bindir OUTPUT_VARIABLE TESSEL_BINDIR)
string(REGEX REPLACE "(.)/$" "\\1" TESSEL_BINDIR "${TESSEL_BINDIR}")

configure_file(${TESSEL_DATA_SOURCE}/tesseld.service.in ${TESSEL_DATA_STAGE}/tesseld.service @ONLY)
foreach(TESSEL_DBUS_NAME ${TESSEL_DBUS_NAMES})
    configure_file(${TESSEL_DATA_SOURCE}/dbus-activation.service.in
        ${TESSEL_DATA_STAGE}/${TESSEL_DBUS_NAME}.service @ONLY)
endforeach()
