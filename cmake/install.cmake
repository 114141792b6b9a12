# What goes where, in three components that packages are made of: the service, its tool, and
# what programs need that speak with it.
set(own_data_dir ${CMAKE_INSTALL_DATADIR}/${PROJECT_NAME})

# sbin: nobody calls the service by hand, the system starts it.
install(TARGETS status_json_service RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR}
        COMPONENT service)
# FULL, as this is /etc where the prefix is /usr, which is where the service looks.
install(FILES etc/log4cpp/status_json_service.conf
        DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/log4cpp COMPONENT service)

if(BUILD_TOOLS)
    install(TARGETS statusctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()

if(BUILD_MQTT)
    install(TARGETS status_mqtt RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT mqtt)
    install(FILES man/status_mqtt.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT mqtt)
endif()

install(FILES core/messages.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME}
        COMPONENT development)
configure_file(packaging/${PROJECT_NAME}.pc.in ${PROJECT_NAME}.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/${PROJECT_NAME}.pc DESTINATION ${CMAKE_INSTALL_DATADIR}/pkgconfig
        COMPONENT development)
file(GLOB schemas schemas/*.json)
install(FILES ${schemas} DESTINATION ${own_data_dir}/schemas COMPONENT development)

# A manual belongs to the component of what it describes: section 1 has the tool, section 5 the
# formats, section 8 the service.
foreach(section_and_component 1:tools 5:development 8:service)
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
