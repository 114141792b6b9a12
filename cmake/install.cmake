# What goes where, in components: the service, its tool, the library of the programs that speak with
# it, what they are built with, and what starts the service where no package does that.
set(own_data_dir ${CMAKE_INSTALL_DATADIR}/${PROJECT_NAME})

# sbin: nobody calls the service by hand, the system starts it.
install(TARGETS status_json_service RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR}
        COMPONENT service)
# FULL, as this is /etc where the prefix is /usr, which is where the service looks.
if(NOT CMAKE_INSTALL_FULL_SYSCONFDIR STREQUAL "/etc")
    message(WARNING "Installed to ${CMAKE_INSTALL_FULL_SYSCONFDIR}, the service will not find its "
                    "log configuration: it looks in /etc, so set CMAKE_INSTALL_PREFIX=/usr")
endif()
install(FILES etc/log4cpp/status_json_service.conf
        DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/log4cpp COMPONENT service)

set(packaging ${PROJECT_SOURCE_DIR}/packaging/${PROJECT_NAME})
install(FILES ${packaging}.service DESTINATION lib/systemd/system COMPONENT startup)
foreach(kind sysusers tmpfiles)
    install(FILES ${packaging}.${kind} DESTINATION lib/${kind}.d RENAME ${PROJECT_NAME}.conf
            COMPONENT startup)
endforeach()
install(PROGRAMS ${packaging}.init DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/init.d
        RENAME ${PROJECT_NAME} COMPONENT startup)

if(BUILD_TOOLS)
    install(TARGETS statusctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()

if(BUILD_MQTT)
    install(TARGETS status_mqtt RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT mqtt)
    install(FILES man/status_mqtt.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT mqtt)
    install(FILES packaging/status_mqtt.service DESTINATION lib/systemd/system COMPONENT startup)
    install(PROGRAMS packaging/status_mqtt.init DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/init.d
            RENAME status_mqtt COMPONENT startup)
endif()

install(TARGETS statusjson_shared LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT library NAMELINK_COMPONENT development)
install(TARGETS statusjson ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(FILES core/messages.h client/client.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME} COMPONENT development)
foreach(module_and_folder ${PROJECT_NAME}:DATADIR statusjson:LIBDIR)
    string(REPLACE ":" ";" module_and_folder ${module_and_folder})
    list(GET module_and_folder 0 module)
    list(GET module_and_folder 1 folder)
    configure_file(packaging/${module}.pc.in ${module}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${module}.pc
            DESTINATION ${CMAKE_INSTALL_${folder}}/pkgconfig COMPONENT development)
endforeach()
file(GLOB schemas schemas/*.json)
install(FILES ${schemas} DESTINATION ${own_data_dir}/schemas COMPONENT development)

# A manual belongs to the component of what it describes: section 1 has the tool, section 3 the
# library, section 5 the formats, section 8 the service.
foreach(section_and_component 1:tools 3:development 5:development 8:service)
    string(REPLACE ":" ";" section_and_component ${section_and_component})
    list(GET section_and_component 0 section)
    list(GET section_and_component 1 component)
    file(GLOB manuals man/*.${section})
    list(FILTER manuals EXCLUDE REGEX status_mqtt)
    install(FILES ${manuals} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
            COMPONENT ${component})
endforeach()

# The page is served from its folder as it is.
set(page_dir ${CMAKE_INSTALL_DATADIR}/status_json_page)
file(GLOB page page/*.html page/*.css page/*.js)
install(FILES ${page} DESTINATION ${page_dir} COMPONENT page)
install(DIRECTORY page/mqtt DESTINATION ${page_dir} COMPONENT page)
install(FILES man/status_json_page.7 DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT page)
