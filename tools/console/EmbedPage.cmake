# Writes the page's files as a source file: cmake -D FOLDER=... -D OUTPUT=... -P EmbedPage.cmake
set(types .html "text/html\; charset=utf-8" .js "text/javascript\; charset=utf-8" .css "text/css\; charset=utf-8"
          .svg "image/svg+xml" .json "application/manifest+json")
set(arrays "")
set(rows "")
file(GLOB files RELATIVE ${FOLDER} ${FOLDER}/*)
foreach(file IN LISTS files)
  cmake_path(GET file EXTENSION LAST_ONLY extension)
  list(FIND types ${extension} at)
  if(at EQUAL -1)
    message(FATAL_ERROR "EmbedPage: no type for ${file}")
  endif()
  math(EXPR at "${at} + 1")
  list(GET types ${at} type)
  file(READ ${FOLDER}/${file} bytes HEX)
  string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
  string(MAKE_C_IDENTIFIER ${file} name)
  string(APPEND arrays "const unsigned char ${name}[] = {${bytes}};\n")
  string(APPEND rows "    {\"/${file}\", \"${type}\", ${name}},\n")
endforeach()
file(WRITE ${OUTPUT} "#include \"hub/Doors.h\"

namespace kolvex_console {

namespace {

${arrays}
const PageFile kFiles[] = {
${rows}};

}  // namespace

std::span<const PageFile> PageFiles() { return kFiles; }

}  // namespace kolvex_console
")
