# libcurl, libuv and what they need, as scripts/deps built them, and the checks
# that they can do what this library relies on.

if(WIN32)
  set(deps_platform windows)
else()
  set(deps_platform linux)
endif()
if(HTTP_INTERFACE_SANITIZER STREQUAL "address")
  string(APPEND deps_platform "-asan")
elseif(HTTP_INTERFACE_SANITIZER STREQUAL "thread")
  string(APPEND deps_platform "-tsan")
elseif(HTTP_INTERFACE_SANITIZER STREQUAL "fuzzer")
  string(APPEND deps_platform "-fuzz")
endif()
set(HTTP_INTERFACE_DEPS "${PROJECT_SOURCE_DIR}/build/deps/${deps_platform}" CACHE PATH
    "Folder that scripts/deps ${deps_platform} made")
if(NOT EXISTS "${HTTP_INTERFACE_DEPS}/include/curl/curl.h")
  message(FATAL_ERROR "No libcurl in ${HTTP_INTERFACE_DEPS}: run scripts/deps ${deps_platform}")
endif()

# The folder is a link into a cache: the packages in it are told by its real path.
file(REAL_PATH "${HTTP_INTERFACE_DEPS}" deps_prefix)
list(PREPEND CMAKE_PREFIX_PATH "${deps_prefix}")
list(PREPEND CMAKE_FIND_ROOT_PATH "${deps_prefix}")
find_package(Threads REQUIRED)
find_package(CURL CONFIG REQUIRED PATHS "${deps_prefix}" NO_DEFAULT_PATH)
find_package(libuv CONFIG REQUIRED PATHS "${deps_prefix}" NO_DEFAULT_PATH)

if(WIN32)
  # A static OpenSSL needs these after itself.
  set_property(TARGET OpenSSL::Crypto APPEND PROPERTY INTERFACE_LINK_LIBRARIES ws2_32 crypt32)
endif()

if(CURL_VERSION VERSION_LESS 8.20)
  message(FATAL_ERROR "libcurl ${CURL_VERSION} is too old, 8.20 is needed: before it, "
    "CURLINFO_SCHEME answers WS and WSS in upper case, and the end of a WebSocket would be "
    "reported as that of a request")
endif()
foreach(protocol IN ITEMS http https ws wss)
  string(TOUPPER "${protocol}" upper)
  if(NOT "${protocol}" IN_LIST CURL_SUPPORTED_PROTOCOLS AND NOT upper IN_LIST
                                                            CURL_SUPPORTED_PROTOCOLS)
    message(FATAL_ERROR "libcurl in ${HTTP_INTERFACE_DEPS} was built without ${protocol}, which "
                        "requests with such URLs need")
  endif()
endforeach()
foreach(feature IN ITEMS SSL HTTP2)
  if(NOT feature IN_LIST CURL_SUPPORTED_FEATURES)
    message(FATAL_ERROR "libcurl in ${HTTP_INTERFACE_DEPS} was built without ${feature}, which "
                        "https requests need")
  endif()
endforeach()
