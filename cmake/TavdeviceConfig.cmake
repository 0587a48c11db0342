# Nothing else to find: the libraries bring what they need at run time.
include(${CMAKE_CURRENT_LIST_DIR}/TavdeviceTargets.cmake)
