# Keys and certificates for the stand and for the tests.
add_library(cryptstand_certmaker STATIC
  ${CMAKE_CURRENT_LIST_DIR}/certmaker.cpp ${CMAKE_CURRENT_LIST_DIR}/certmaker_key.cpp)
target_include_directories(cryptstand_certmaker PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(cryptstand_certmaker PUBLIC OpenSSL::Crypto PRIVATE cryptcli_warnings)
