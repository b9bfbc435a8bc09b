include(CMakePackageConfigHelpers)

install(TARGETS zivora EXPORT ZivoraTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/zivora DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT ZivoraTargets NAMESPACE Zivora:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Zivora)

configure_package_config_file(cmake/ZivoraConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ZivoraConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Zivora)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZivoraConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZivoraConfig.cmake ${PROJECT_BINARY_DIR}/ZivoraConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Zivora)

configure_file(cmake/zivora.pc.in ${PROJECT_BINARY_DIR}/zivora.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zivora.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The SDK's licence and the licences of what it links travel with it.
install(FILES LICENSE THIRD_PARTY_NOTICES.md DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/zivora)
