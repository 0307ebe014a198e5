# Compiler flags shared by every Kestrix target: call kestrix_target_flags(<target>).
#
# Developers and CI build with KESTRIX_WERROR=ON; a packager's plain release build never fails
# because a newer compiler learned a new warning.

set(KESTRIX_WARNINGS
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align
  -Woverloaded-virtual -Wconversion -Wsign-conversion -Wnull-dereference -Wdouble-promotion
  -Wformat=2 -Wimplicit-fallthrough -Wswitch-enum)

if(KESTRIX_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

# With link-time optimisation the objects still carry ordinary code too (fat LTO objects), so every
# warning that needs the optimiser is still raised, and made an error, as each file is compiled.
# At the link, GCC 12 warns that Qt's QHash could allocate more than the address space: a false
# positive of the whole-program view (the hash bounds its size itself), not repeated there.
if(CMAKE_INTERPROCEDURAL_OPTIMIZATION AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-ffat-lto-objects)
  add_link_options(-Wno-alloc-size-larger-than)
endif()

function(kestrix_target_flags target)
  target_compile_options(${target} PRIVATE ${KESTRIX_WARNINGS})
  if(KESTRIX_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  target_compile_definitions(${target} PRIVATE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
    QT_NO_KEYWORDS)
endfunction()
