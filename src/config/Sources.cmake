target_sources(qel_onlineservices_framework_internal PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/ConfigReader.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ClientEntries.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ClientParts.cpp
  ${CMAKE_CURRENT_LIST_DIR}/OnlineServiceClientFactory.cpp)
