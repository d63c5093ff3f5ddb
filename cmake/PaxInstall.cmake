# Installing PaxImage for host programs, and the packages made from the
# installed tree (a .deb on Linux, a .zip SDK for Windows).
#
#   bin/      paximg, and on Windows PAXIMGUser.dll
#   lib/      libPAXIMGUser.so.12 (Linux); libPAXIMGUser.dll.a (mingw-w64) and
#             PAXIMGUser.lib (Microsoft's linker) for Windows
#   include/  paximage.h, paximage.hpp and, on Linux, the stand-in win32lite.h
#   lib/pkgconfig/paximage.pc, lib/cmake/PaxImage/ (find_package(PaxImage))
#
# Every installed file finds the others relative to itself, so a prefix can be
# moved or unpacked anywhere.
include(CMakePackageConfigHelpers)
set(PAX_INSTALL_CMAKEDIR lib/cmake/PaxImage)

if(WIN32)
  install(TARGETS PAXIMGUser RUNTIME DESTINATION bin ARCHIVE DESTINATION lib)
  set(PAX_LIBRARY_LOCATION bin/PAXIMGUser.dll)
  # The import library for Microsoft's linker, made from the module definition.
  find_program(PAX_LLVM_DLLTOOL NAMES llvm-dlltool llvm-dlltool-16 llvm-dlltool-15 llvm-dlltool-14)
  if(PAX_LLVM_DLLTOOL)
    set(msvc_lib ${CMAKE_BINARY_DIR}/lib/PAXIMGUser.lib)
    add_custom_command(OUTPUT ${msvc_lib}
                       COMMAND ${PAX_LLVM_DLLTOOL} -m i386:x86-64 -d ${PAX_DEF_FILE} -l ${msvc_lib}
                       DEPENDS ${PAX_DEF_FILE} VERBATIM
                       COMMENT "Making PAXIMGUser.lib for Microsoft's linker")
    add_custom_target(PAXIMGUser_msvc_lib ALL DEPENDS ${msvc_lib})
    install(FILES ${msvc_lib} DESTINATION lib)
  else()
    message(WARNING "llvm-dlltool not found: PAXIMGUser.lib is not made (apt-get install llvm)")
  endif()
else()
  # Versioned name: libPAXIMGUser.so.12 is the soname.
  set_target_properties(PAXIMGUser PROPERTIES VERSION ${PROJECT_VERSION}
                                              SOVERSION ${PROJECT_VERSION_MAJOR})
  install(TARGETS PAXIMGUser LIBRARY DESTINATION lib)
  set(PAX_LIBRARY_LOCATION lib/libPAXIMGUser.so.${PROJECT_VERSION})
  install(FILES ${PROJECT_SOURCE_DIR}/win32lite/win32lite.h DESTINATION include)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/include/paximage.h ${PROJECT_SOURCE_DIR}/include/paximage.hpp
        DESTINATION include)
if(TARGET paximg)
  # The tool finds the library relative to itself, never by an absolute build
  # path: beside it in the build tree, in ../lib when installed (on Windows
  # the DLL lies beside it).
  set_target_properties(paximg PROPERTIES INSTALL_RPATH "$ORIGIN:$ORIGIN/../lib"
                                          BUILD_WITH_INSTALL_RPATH ON)
  install(TARGETS paximg RUNTIME DESTINATION bin)
endif()

configure_file(${CMAKE_CURRENT_LIST_DIR}/paximage.pc.in ${CMAKE_BINARY_DIR}/paximage.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/paximage.pc DESTINATION lib/pkgconfig)
configure_file(${CMAKE_CURRENT_LIST_DIR}/PaxImageConfig.cmake.in
               ${CMAKE_BINARY_DIR}/PaxImageConfig.cmake @ONLY)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/PaxImageConfigVersion.cmake
                                 VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/PaxImageConfig.cmake ${CMAKE_BINARY_DIR}/PaxImageConfigVersion.cmake
        DESTINATION ${PAX_INSTALL_CMAKEDIR})

# Packages: `cpack` in a build folder.
set(CPACK_PACKAGE_NAME paximage)
set(CPACK_PACKAGE_VENDOR "PaxImage")
set(CPACK_PACKAGE_CONTACT "PaxImage maintainers <paximage@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Colour-image operations on packed DIBs, and the paximg tool")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME PaxImage-${PROJECT_VERSION}-win64-sdk)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libstdc++6 (>= 12), libgcc-s1")
endif()
include(CPack)
