numbra_target_sources(numbra_mac_x86
  ${CMAKE_CURRENT_LIST_DIR}/prelu.cpp
  ${CMAKE_CURRENT_LIST_DIR}/prelu_avx.cpp
  ${CMAKE_CURRENT_LIST_DIR}/relu.cpp
  ${CMAKE_CURRENT_LIST_DIR}/relu_avx.cpp
)
