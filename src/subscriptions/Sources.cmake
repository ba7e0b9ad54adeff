target_sources(qel_onlineservices_framework_internal PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/JobItem.cpp
  ${CMAKE_CURRENT_LIST_DIR}/KVSItem.cpp
  ${CMAKE_CURRENT_LIST_DIR}/PrivacyItem.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RSISubscriptionCallback.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ServiceItem.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SubscriptionBaseItem.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SubscriptionCollector.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SubscriptionManager.cpp
  ${CMAKE_CURRENT_LIST_DIR}/TokenItem.cpp)
