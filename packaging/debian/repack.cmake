# Runs on the finished packages. Sets a field for which CPack has no setting, and removes the scripts with
# which CPack calls ldconfig for every library, because the trigger does that.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    set(tree ${package}.d)
    execute_process(COMMAND dpkg-deb --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
    if(EXISTS ${tree}/usr/bin)
        set(multi_arch foreign)
    else()
        set(multi_arch same)
        file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
    endif()
    file(READ ${tree}/DEBIAN/control control)
    file(WRITE ${tree}/DEBIAN/control "Multi-Arch: ${multi_arch}\n${control}")
    execute_process(COMMAND dpkg-deb --root-owner-group -Zxz --build ${tree} ${package}
                    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE ${tree})
endforeach()
