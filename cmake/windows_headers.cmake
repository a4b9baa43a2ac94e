# What every source that includes <windows.h> defines before it.
add_library(windows_headers INTERFACE)
target_compile_definitions(windows_headers INTERFACE
  UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00)
