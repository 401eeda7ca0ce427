# Manual pages (where scdoc is there) and bash completion of the programs.
find_program(SCDOC scdoc)
set(manuals ${CMAKE_BINARY_DIR}/manuals)
file(MAKE_DIRECTORY ${manuals})

# core_add_manual(PROGRAM SECTION COMPONENT)
function(core_add_manual program section component)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/completion/${program}
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT ${component})
    if(NOT SCDOC)
        return()
    endif()
    set(source ${PROJECT_SOURCE_DIR}/packaging/man/${program}.${section}.scd)
    set(page ${manuals}/${program}.${section}.gz)
    # scdoc takes the date from the environment, gzip none: the same source gives the same page.
    add_custom_command(OUTPUT ${page} DEPENDS ${source} VERBATIM
        COMMAND sh -c "SOURCE_DATE_EPOCH=\$(date --reference \"$0\" +%s) scdoc < \"$0\" | gzip -9n > \"$1\"" ${source} ${page})
    set_property(GLOBAL APPEND PROPERTY CORE_MANUALS ${page})
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()

core_add_manual(skyfold 1 sample)
core_add_manual(skyfold-hub 1 tools)
core_add_manual(skyfold-core-new-application 1 development)
core_add_manual(skyfold.module_loader 8 runtime)
if(CORE_PACKAGES)
    core_add_manual(skyfold-core-objects 1 python) # Python's own files go where Debian has them.
endif()
get_property(pages GLOBAL PROPERTY CORE_MANUALS)
add_custom_target(manuals ALL DEPENDS ${pages})
