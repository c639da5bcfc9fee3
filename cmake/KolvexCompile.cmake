# How everything of ours is compiled and linked: warnings, hardening, sanitizers.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

add_library(kolvex_compile INTERFACE)
target_compile_options(kolvex_compile INTERFACE -Wall -Wextra -Wpedantic -Wconversion)
# With full optimisation GCC 12 sees overlaps in std::string that aren't there (its bug 105651).
target_compile_options(kolvex_compile INTERFACE $<$<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:Release>>:-Wno-restrict>)
if(KOLVEX_WERROR)
  target_compile_options(kolvex_compile INTERFACE -Werror)
endif()

target_compile_options(kolvex_compile INTERFACE -fstack-protector-strong)
target_link_options(kolvex_compile INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
# Fortify needs an optimising build and disturbs the sanitizers' own checks.
if(NOT KOLVEX_SANITIZE)
  target_compile_options(kolvex_compile INTERFACE $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE$<SEMICOLON>-D_FORTIFY_SOURCE=2>)
endif()

if(KOLVEX_SANITIZE)
  target_compile_options(kolvex_compile INTERFACE -fsanitize=${KOLVEX_SANITIZE} -fno-omit-frame-pointer
                                                  -fno-sanitize-recover=all)
  target_link_options(kolvex_compile INTERFACE -fsanitize=${KOLVEX_SANITIZE})
endif()

# The fuzzers follow which branches an input takes.
if(KOLVEX_FUZZ)
  target_compile_options(kolvex_compile INTERFACE -fsanitize=fuzzer-no-link)
endif()

find_package(Threads REQUIRED)
target_link_libraries(kolvex_compile INTERFACE Threads::Threads ${CMAKE_DL_LIBS})
