target_sources(qel_onlineservices_framework_internal PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/CommonApiConnector.cpp
  ${CMAKE_CURRENT_LIST_DIR}/Conversion.cpp)
