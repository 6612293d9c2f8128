numbra_target_sources(numbra_mac_x86
  ${CMAKE_CURRENT_LIST_DIR}/geam.cpp
  ${CMAKE_CURRENT_LIST_DIR}/transpose.cpp
)
