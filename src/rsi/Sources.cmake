target_sources(qel_onlineservices_framework_internal PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/IRSIJob.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RSIClientWrapper.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RSIEntry.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RSIEntryManager.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RSIEntrySet.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RSIRequest.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RSIResponseHandler.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RSIRetryQueue.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RSIServiceManager.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RSISubscription.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RSIUnSubRequest.cpp)
