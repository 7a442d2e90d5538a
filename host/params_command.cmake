#qvnhost params : the exporter's settings dialog as a user would see it.
add_library(qvn_params_command STATIC ${CMAKE_CURRENT_LIST_DIR} /
            params_command.cpp ${CMAKE_CURRENT_LIST_DIR} / param_text.cpp)
    target_link_libraries(qvn_params_command PUBLIC qvnhost_core PRIVATE qvn_warnings)
