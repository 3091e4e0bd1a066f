# lv_subsystem(name): an INTERFACE target that gathers the libraries of a folder's
# subfolders. Each subfolder builds its own library and adds it with
#   target_link_libraries(<name> INTERFACE <its library>)
macro(lv_subsystem name)
    add_library(${name} INTERFACE)
    file(GLOB _lv_children LIST_DIRECTORIES true RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR}/*)
    list(SORT _lv_children)
    foreach(_lv_child ${_lv_children})
        if(IS_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/${_lv_child} AND EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${_lv_child}/CMakeLists.txt)
            add_subdirectory(${_lv_child})
        endif()
    endforeach()
endmacro()
