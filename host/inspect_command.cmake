# qvnhost inspect: an AVI reader written apart from the writer, for support engineers and for tests.
add_library(qvn_inspect_command STATIC ${CMAKE_CURRENT_LIST_DIR}/inspect_command.cpp)
target_include_directories(qvn_inspect_command PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(qvn_inspect_command PRIVATE qvn_warnings)
