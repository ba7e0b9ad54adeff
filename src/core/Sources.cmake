target_sources(qel_onlineservices_framework_internal PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/Condition.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ConditionManager.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ConditionRetryRequest.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ConditionTables.cpp
  ${CMAKE_CURRENT_LIST_DIR}/Notifier.cpp
  ${CMAKE_CURRENT_LIST_DIR}/OnlineServiceClient.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RetryRequestThread.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RunStateTables.cpp
  ${CMAKE_CURRENT_LIST_DIR}/UpdateConditionCallback.cpp)
