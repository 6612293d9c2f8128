# numbra_target_sources(<target> <file>...)
#
# Adds library sources and gives each its instruction set by its name: a file
# ending in _avx.cpp is compiled with -mavx, one ending in _fma.cpp with
# -mavx2 -mfma, one ending in _avx2.cpp with -mavx2. Every other file stays
# at the project's AVX baseline, so FMA and AVX2 code never leaks into the
# plain template code.
#
# Internal code lives in namespace numbra_internal, and every header under
# src/ defines its functions, types and constants in an anonymous namespace
# inside it. A header included by an instruction-set source so gives each
# source its own copy, compiled with that source's flags: an inline
# definition with external linkage, compiled once with FMA and once without,
# would be merged by the linker into one copy, and an AVX-only caller could
# end up running FMA instructions.
function(numbra_target_sources target)
  foreach(source IN LISTS ARGN)
    if(source MATCHES "_avx\\.cpp$")
      set_source_files_properties(${source} PROPERTIES COMPILE_OPTIONS "-mavx")
    elseif(source MATCHES "_fma\\.cpp$")
      set_source_files_properties(${source} PROPERTIES COMPILE_OPTIONS "-mavx2;-mfma")
    elseif(source MATCHES "_avx2\\.cpp$")
      set_source_files_properties(${source} PROPERTIES COMPILE_OPTIONS "-mavx2")
    endif()
    target_sources(${target} PRIVATE ${source})
  endforeach()
endfunction()
