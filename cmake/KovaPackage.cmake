# The Debian package: `cpack -G DEB` in the build folder. packaging/README.md says what its
# maintainer scripts do and keep.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "ACME client for appliances and small Linux servers")
set(CPACK_PACKAGE_CONTACT "Kova maintainers <maintainers@kova.example>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/package)

# The tree reaches outside the prefix (manual pages, completion), so it is staged with DESTDIR.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/PackageTools.cmake)
# openssl: the default certificates; ca-certificates: trust in the CA's server.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "openssl, ca-certificates")
# Renewal, where the systemd timer does not do it.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "cron | cron-daemon")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "nginx | httpd, bash-completion")
set(CPACK_PACKAGE_DESCRIPTION
"Obtains, renews and revokes TLS server certificates from an ACME certificate
authority (Let's Encrypt by default) with the http-01 and dns-01 challenges,
opens the ports that a validation needs on a home router through UPnP, and
keeps the certificates in an archive from which they are deployed to services.
Renewal is a cron job whose moment spreads over a fleet of hosts, or a systemd
timer on hosts without cron.
.
kova-archive lists, binds, deploys and checks the certificates of the archive.")

set(kova_debian ${PROJECT_SOURCE_DIR}/packaging/debian)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${kova_debian}/conffiles ${kova_debian}/postinst ${kova_debian}/prerm ${kova_debian}/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# What only the package has: its papers, and why it departs from the distribution's rules.
set(kova_papers ${PROJECT_BINARY_DIR}/papers)
file(MAKE_DIRECTORY ${kova_papers})
kova_compressed(${kova_papers}/changelog.Debian.gz ${kova_debian}/changelog)
kova_compressed(${kova_papers}/changelog.gz ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
add_custom_target(kova_papers ALL
                  DEPENDS ${kova_papers}/changelog.Debian.gz ${kova_papers}/changelog.gz)
file(READ ${PROJECT_SOURCE_DIR}/LICENSE kova_license)
configure_file(${kova_debian}/copyright.in ${kova_papers}/copyright @ONLY)

install(FILES ${kova_papers}/changelog.Debian.gz ${kova_papers}/changelog.gz
              ${kova_papers}/copyright
        DESTINATION /usr/share/doc/${PROJECT_NAME} COMPONENT papers EXCLUDE_FROM_ALL)
kova_install_documents(/usr/share/doc/${PROJECT_NAME} COMPONENT papers EXCLUDE_FROM_ALL)
install(FILES ${kova_debian}/lintian-overrides RENAME ${PROJECT_NAME}
        DESTINATION /usr/share/lintian/overrides COMPONENT papers EXCLUDE_FROM_ALL)
# Neither "documents", which lie elsewhere here, nor "state", which is for postinst to make on the host.
set(CPACK_INSTALL_CMAKE_PROJECTS "")
foreach(component Unspecified papers)
  list(APPEND CPACK_INSTALL_CMAKE_PROJECTS
       "${PROJECT_BINARY_DIR}" "${PROJECT_NAME}" ${component} /)
endforeach()

include(CPack)
