# What `cmake --install` puts under the prefix:
#   lib/libzul.so.1.1.0 (soname libzul.so.1) and its links
#   include/zul.h, include/zul_bulk.h, include/zul.hpp and include/zul/*.hpp: the C API, its
#   bulk calls and their C++ classes
#   lib/libzul_companion.so.1.1.0 and include/zul_companion.h: the companion file's library
#   include/zul/<folder>/*.h: the exported classes of the library, for C++ hosts that use them
#   lib/cmake/zul/: the package for find_package(zul 1.1), giving the target zul::zul
#   lib/pkgconfig/zul.pc
#   bin/zul, when the tool is built, and lib/libzul_crs.so, the coordinate system module (PROJ)
#   that it loads on first use from bin/../lib
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

target_include_directories(zul PUBLIC $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(TARGETS zul EXPORT zulTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES include/zul.h include/zul_bulk.h include/zul.hpp DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# The companion file's library (zul::companion) and its header; zul/companion.hpp comes with
# the other classes below.
install(TARGETS zul_companion EXPORT zulTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES include/zul_companion.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/zul/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zul
        FILES_MATCHING PATTERN "*.hpp")

# The headers that declare the exported classes, and what they include. Inside the library they
# include each other from the src folder ("frame/header2.h"); installed, they sit under zul/, so
# their copies include "zul/frame/header2.h" and need no include path but the prefix's.
set(ZUL_CLASS_HEADERS
  frame/bounding_box.h frame/data_type.h frame/file_header.h frame/file_signature.h
  frame/compiler.h frame/header2.h frame/random_generator.h frame/sync_marker.h frame/wrapping.h
  entropy/bit_stream_in.h entropy/bit_stream_out.h entropy/cvr.h entropy/prefix_optimizer.h
  entropy/quantized_point.h
  encoder/enc_context.h
  decoder/dec_context.h)
file(REMOVE_RECURSE ${PROJECT_BINARY_DIR}/installed_headers)
foreach(header IN LISTS ZUL_CLASS_HEADERS)
  set(source ${PROJECT_SOURCE_DIR}/src/${header})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
  file(READ ${source} text)
  string(REGEX REPLACE "#include \"(frame|entropy|encoder|decoder)/" "#include \"zul/\\1/" text
         "${text}")
  file(WRITE ${PROJECT_BINARY_DIR}/installed_headers/zul/${header} "${text}")
endforeach()
install(DIRECTORY ${PROJECT_BINARY_DIR}/installed_headers/zul/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zul)

set(ZUL_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zul)
install(EXPORT zulTargets NAMESPACE zul:: DESTINATION ${ZUL_PACKAGE_DIR})
configure_package_config_file(cmake/zulConfig.cmake.in ${PROJECT_BINARY_DIR}/zulConfig.cmake
                              INSTALL_DESTINATION ${ZUL_PACKAGE_DIR})
# 1.1 is met by any 1.x from 1.1 on; a 2.0 would not be.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zulConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zulConfig.cmake ${PROJECT_BINARY_DIR}/zulConfigVersion.cmake
        DESTINATION ${ZUL_PACKAGE_DIR})

file(RELATIVE_PATH ZUL_PC_PREFIX_FROM_PCFILEDIR /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/zul.pc.in ${PROJECT_BINARY_DIR}/zul.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zul.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
