# Compiles every public header alone and twice, in each language it is for. A header is C unless its
# name stands in the list of C++ headers.

set(rkutils_cxx_only_headers config_daemon_client config_reader dynamic_module hash_context hash_table
                             hmac_context ip_address ping_client simple_sms status_interface string)

file(GLOB rkutils_headers CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}/include"
     "${PROJECT_SOURCE_DIR}/include/rkutils/*.h")

set(rkutils_header_check_sources)
foreach(header IN LISTS rkutils_headers)
  get_filename_component(name "${header}" NAME_WE)
  set(languages cpp)
  if(NOT name IN_LIST rkutils_cxx_only_headers)
    list(APPEND languages c)
  endif()
  foreach(language IN LISTS languages)
    set(source "${PROJECT_BINARY_DIR}/header_check/${name}.${language}")
    file(CONFIGURE OUTPUT "${source}" CONTENT
         "#include <@header@>\n#include <@header@>\nextern int header_@name@_is_checked;\n" @ONLY)
    list(APPEND rkutils_header_check_sources "${source}")
  endforeach()
endforeach()

add_library(rkutils_header_check OBJECT ${rkutils_header_check_sources})
set_target_properties(rkutils_header_check PROPERTIES CXX_STANDARD 11 C_STANDARD 99)
target_include_directories(rkutils_header_check PRIVATE "${PROJECT_SOURCE_DIR}/include")
target_link_libraries(rkutils_header_check PRIVATE rkutils_warnings)
