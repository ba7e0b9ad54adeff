target_sources(qel_onlineservices_framework_internal PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/AccessTokenObject.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ArrayVisitor.cpp
  ${CMAKE_CURRENT_LIST_DIR}/JobObject.cpp
  ${CMAKE_CURRENT_LIST_DIR}/KVSItemObject.cpp
  ${CMAKE_CURRENT_LIST_DIR}/PrivacySettingsObject.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ServiceObject.cpp)
