numbra_target_sources(numbra_mac_x86
  ${CMAKE_CURRENT_LIST_DIR}/elementwise.cpp
  ${CMAKE_CURRENT_LIST_DIR}/fill.cpp
  ${CMAKE_CURRENT_LIST_DIR}/mask_split.cpp
  ${CMAKE_CURRENT_LIST_DIR}/random.cpp
  ${CMAKE_CURRENT_LIST_DIR}/reduce.cpp
  ${CMAKE_CURRENT_LIST_DIR}/transcendental.cpp
)
