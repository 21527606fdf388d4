# Keys and certificates for cryptstand and for the tests.
add_library(cryptstand_cert_maker STATIC
  ${CMAKE_CURRENT_LIST_DIR}/cert_maker.cpp ${CMAKE_CURRENT_LIST_DIR}/key_pair.cpp)
target_include_directories(cryptstand_cert_maker PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(cryptstand_cert_maker PUBLIC OpenSSL::Crypto PRIVATE cryptcli_warnings)
