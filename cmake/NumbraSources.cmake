# numbra_target_sources(<target> <file>...)
#
# Adds library sources and gives each its instruction set by its name: a file
# ending in _avx.cpp is compiled with -mavx, one ending in _fma.cpp with
# -mavx2 -mfma, one ending in _avx2.cpp with -mavx2. Every other file stays
# at the project's AVX baseline, so FMA and AVX2 code never leaks into the
# plain template code.
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
