# How everything is compiled and linked.
#   vexa_options          compile and link options of all code
#   vexa_program_options  link options of the program alone
#   VEXA_CRYPT_LIBRARY    the library that holds crypt()
#   VEXA_GMIME_INCLUDE_DIRS   the headers of the library that reads mail, loaded when first used

add_library(vexa_options INTERFACE)
add_library(vexa_program_options INTERFACE)

target_compile_options(vexa_options INTERFACE -Wall -Wextra -Wpedantic)
if(VEXA_STRICT)
  target_compile_options(vexa_options INTERFACE -Wconversion -Werror)
endif()

if(VEXA_SANITIZE)
  set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=all)
  target_compile_options(vexa_options INTERFACE ${sanitizers} -fno-omit-frame-pointer)
  target_link_options(vexa_options INTERFACE ${sanitizers})
endif()

if(VEXA_FUZZ)
  target_compile_options(vexa_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# A request is a new process, so what the dynamic linker does before main is paid on every page:
# the C++ runtime is linked into the program, unused sections are dropped, code and constants share
# their pages, which saves mappings. Optimising at link time saves a tenth of the instructions of a
# loop; a build guided by a profile saved another twentieth and was not worth building twice.
#
# The program reads what strangers send: it stays position-independent (its relocations are packed),
# overruns of the stack and of buffers of known size end it, indirect calls land where functions
# begin, and all addresses that the linker fills in are read-only before main. Binding every function
# of the C library at start costs 40,000 instructions of a page and saves the page faults of doing it
# one by one. What classes are called and derived from is asked nowhere: without it a third of the
# addresses of the program need not be filled in.
if(VEXA_FAST_START)
  include(CheckIPOSupported)
  check_ipo_supported(RESULT VEXA_LTO OUTPUT ignored LANGUAGES CXX)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ${VEXA_LTO})
  target_compile_options(vexa_options INTERFACE -ffunction-sections -fdata-sections
    -fvisibility=hidden -fvisibility-inlines-hidden -fno-rtti
    -fstack-protector-strong -fcf-protection -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
  # The compiler's own list of libraries would bring the mathematics library back in, which is
  # loaded when a page first computes with it (src/expr/math_library.h).
  target_link_libraries(vexa_program_options INTERFACE
    -Wl,-Bstatic -lstdc++ -lgcc -lgcc_eh -Wl,-Bdynamic -lc)
  target_link_options(vexa_program_options INTERFACE -nodefaultlibs
    -Wl,--gc-sections -Wl,--as-needed -Wl,-O1 -Wl,--hash-style=gnu -Wl,-z,now -Wl,-z,relro
    -Wl,-z,noseparate-code -Wl,-z,pack-relative-relocs -s)
  # What the library of patterns calls of the C library is found when a page first has a pattern
  # (src/expr/pattern.cpp).
  foreach(function __ctype_b_loc __ctype_tolower_loc madvise posix_madvise sysconf)
    target_link_options(vexa_program_options INTERFACE -Wl,--wrap=${function})
  endforeach()
endif()

# crypt() is needed by few pages: linked statically, no other page pays for loading its library.
set(VEXA_CRYPT_LIBRARY crypt)
if(VEXA_FAST_START)
  find_library(VEXA_STATIC_CRYPT libcrypt.a)
  if(VEXA_STATIC_CRYPT)
    set(VEXA_CRYPT_LIBRARY ${VEXA_STATIC_CRYPT})
  endif()
endif()

find_package(PkgConfig REQUIRED)
pkg_check_modules(VEXA_GMIME REQUIRED gmime-3.0)
