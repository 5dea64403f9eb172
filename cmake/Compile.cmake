# How our own code is compiled: http_interface_compile(TARGET).

function(http_interface_compile target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON)
  # Some log lines deliberately give their format other arguments than it asks
  # for; formats are passed through the log facade, where no warning sees them.
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${HTTP_INTERFACE_WERROR}>:-Werror>)
  if(NOT WIN32)
    # Unique symbols, which std::make_shared leaves, would make dlclose a no-op.
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
  endif()
  if(HTTP_INTERFACE_SANITIZER STREQUAL "address")
    target_compile_options(${target} PRIVATE -fsanitize=address,undefined
                           -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC -fsanitize=address,undefined)
  elseif(HTTP_INTERFACE_SANITIZER STREQUAL "thread")
    target_compile_options(${target} PRIVATE -fsanitize=thread -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC -fsanitize=thread)
  elseif(HTTP_INTERFACE_SANITIZER STREQUAL "fuzzer")
    # The driver itself is linked to the fuzzed programs only.
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link,address,undefined
                           -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC -fsanitize=address,undefined)
  elseif(HTTP_INTERFACE_SANITIZER)
    message(FATAL_ERROR "HTTP_INTERFACE_SANITIZER is '${HTTP_INTERFACE_SANITIZER}': "
                        "give address, thread, fuzzer or nothing")
  endif()
  if(HTTP_INTERFACE_COVERAGE)
    # Several threads count.
    target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
    target_link_options(${target} PUBLIC --coverage)
  endif()
endfunction()

# What a shared library of ours is linked with, so that it unloads, carries its
# runtime with it, and links the same way twice.
function(http_interface_shared target)
  if(WIN32)
    # Only a fully static link keeps the compiler's runtime libraries out of the
    # import table.
    target_link_options(${target} PRIVATE
      -static -Wl,--no-insert-timestamp -Wl,--exclude-all-symbols)
    set_target_properties(${target} PROPERTIES PREFIX "" IMPORT_PREFIX "lib")
  else()
    target_link_options(${target} PRIVATE -Wl,--exclude-libs,ALL)
    set_target_properties(${target} PROPERTIES
      VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
      BUILD_RPATH_USE_ORIGIN ON INSTALL_RPATH "$ORIGIN")
  endif()
endfunction()
