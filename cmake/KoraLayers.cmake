# kora_add_layer(NAME [STATIC] SOURCES src... [LIBS lib...] [PRIVATE_LIBS lib...])
#
# One layer of the platform: a shared library (a static one with STATIC)
# named kora_<layer>, whose public headers are platform/include/<layer>.
# LIBS are the layers below it; their headers come with them, nobody
# else's do. Shared layers are linked with --no-undefined, so a call into
# a layer that is not linked fails the link as an include fails the
# compile.
function(kora_add_layer name)
  cmake_parse_arguments(ARG "STATIC" "" "SOURCES;LIBS;PRIVATE_LIBS" ${ARGN})
  string(REGEX REPLACE "^kora_" "" layer ${name})
  if(ARG_STATIC)
    add_library(${name} STATIC ${ARG_SOURCES})
  else()
    add_library(${name} SHARED ${ARG_SOURCES})
    set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0)
    # Sanitizer builds leave the sanitizer's symbols to the executable.
    if(NOT KORA_FUZZ)
      target_link_options(${name} PRIVATE -Wl,--no-undefined)
    endif()
    install(TARGETS ${name} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/kora)
  endif()
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/platform/include/${layer}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${name} PUBLIC ${ARG_LIBS} PRIVATE ${ARG_PRIVATE_LIBS})
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/include/${layer}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endfunction()
