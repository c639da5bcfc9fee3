# The fuzz targets; each is a file of this name with Fuzz.cpp behind it and a folder in corpus/.
set(KOLVEX_FUZZ_TARGETS CgiText FrameAssembly Mpeg4Header PresetFile RtpHeader RtspDialogue VersionResource)
