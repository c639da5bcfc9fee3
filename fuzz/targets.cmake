# The fuzz targets; each is a file of this name with Fuzz.cpp after it and a folder in corpus/.
set(KOLVEX_FUZZ_TARGETS
  CameraReplies CgiText ChannelPackets ConsoleRequest FrameAssembly HttpReplies Mpeg4Header PresetFile PresetOperations RtcpReports
  RtpHeader RtspDialogue VersionResource XmlPaths)
# What they share beyond the library: the tests' scripted camera and network, and what the console parses itself.
add_library(fuzz_support STATIC
  ${PROJECT_SOURCE_DIR}/fuzz/HttpScript.cpp
  ${PROJECT_SOURCE_DIR}/tests/support/FakeHost.cpp
  ${PROJECT_SOURCE_DIR}/tests/support/ScriptedCamera.cpp
  ${PROJECT_SOURCE_DIR}/tests/support/ScriptedServer.cpp
  ${PROJECT_SOURCE_DIR}/tools/console/web/Gate.cpp
  ${PROJECT_SOURCE_DIR}/tools/console/web/Http.cpp)
target_include_directories(fuzz_support PUBLIC ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/tools/console)
target_link_libraries(fuzz_support PUBLIC kolvex_static)
