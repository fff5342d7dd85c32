# find_package(uhf): what a host for uhf.so is written with.
#
#   uhf::host_interface   the declarations that a host defines; link to it, and it exports them to the plug-in
#   uhf::plugin           uhf.so, and
#   uhf::hostcheck        hostcheck.so, to load: $<TARGET_FILE:uhf::plugin>; only where their packages are there, too
get_filename_component(uhf_prefix ${CMAKE_CURRENT_LIST_DIR}/../../.. ABSOLUTE)
if(NOT TARGET uhf::host_interface)
  add_library(uhf::host_interface INTERFACE IMPORTED)
  target_include_directories(uhf::host_interface INTERFACE ${uhf_prefix}/include/uhf)
  target_compile_features(uhf::host_interface INTERFACE cxx_std_20)
  # The plug-in finds the interface in the program that loads it.
  target_link_options(uhf::host_interface INTERFACE -rdynamic)
  foreach(uhf_module plugin=uhf hostcheck=hostcheck)
    string(REGEX MATCH "^(.*)=(.*)$" uhf_module ${uhf_module})
    if(EXISTS ${uhf_prefix}/lib/uhf/${CMAKE_MATCH_2}.so)
      add_library(uhf::${CMAKE_MATCH_1} MODULE IMPORTED)
      set_target_properties(uhf::${CMAKE_MATCH_1} PROPERTIES IMPORTED_LOCATION ${uhf_prefix}/lib/uhf/${CMAKE_MATCH_2}.so)
    endif()
  endforeach()
endif()
