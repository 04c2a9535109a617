# The platform's log library as the target Android::log. Debian keeps header and library in folders
# named android, and gives no package file. For Android they are the NDK's, never the host's.
if(ANDROID)
    set(where ONLY_CMAKE_FIND_ROOT_PATH)
endif()
find_path(ANDROID_LOG_INCLUDE_DIR android/log.h PATH_SUFFIXES android ${where} REQUIRED)
find_library(ANDROID_LOG_LIBRARY log PATH_SUFFIXES android ${where} REQUIRED)

add_library(Android::log UNKNOWN IMPORTED)
set_target_properties(
    Android::log PROPERTIES IMPORTED_LOCATION ${ANDROID_LOG_LIBRARY}
                            INTERFACE_INCLUDE_DIRECTORIES ${ANDROID_LOG_INCLUDE_DIR})
