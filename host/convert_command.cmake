#qvnhost convert : raw host frames through the pixel converters(owned with converter /).
add_library(qvn_convert_command STATIC ${CMAKE_CURRENT_LIST_DIR} / convert_command.cpp)
    target_link_libraries(qvn_convert_command PUBLIC qvnhost_core qvn_converter PRIVATE qvn_warnings)
