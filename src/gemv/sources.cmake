numbra_target_sources(numbra_mac_x86
  ${CMAKE_CURRENT_LIST_DIR}/gemv.cpp
  ${CMAKE_CURRENT_LIST_DIR}/sgemv_avx.cpp
  ${CMAKE_CURRENT_LIST_DIR}/sgemv_fma.cpp
)
