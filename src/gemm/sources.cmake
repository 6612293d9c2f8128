numbra_target_sources(numbra_mac_x86
  ${CMAKE_CURRENT_LIST_DIR}/gemm.cpp
  ${CMAKE_CURRENT_LIST_DIR}/sgemm_avx.cpp
  ${CMAKE_CURRENT_LIST_DIR}/sgemm_fma.cpp
)
