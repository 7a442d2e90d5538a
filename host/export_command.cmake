# qvnhost export: the render side of the host (sequence source, video and audio renderers, progress, image
# processing) and the command that drives a whole export through the module.
set(dir ${CMAKE_CURRENT_LIST_DIR})
add_library(qvn_render_host STATIC
    ${dir}/picture_writer.cpp ${dir}/frame_stamp.cpp ${dir}/sequence_source.cpp ${dir}/render_scheduler.cpp
    ${dir}/render_suites.cpp ${dir}/sequence_audio.cpp ${dir}/audio_conversion.cpp ${dir}/progress_suite.cpp
    ${dir}/image_processing_suite.cpp ${dir}/request_hook.cpp)
target_link_libraries(qvn_render_host PUBLIC qvnhost_core PRIVATE qvn_warnings)

# DV compression through libavcodec where the system has it (the native build); the Windows host goes
# without and says so.
if(NOT QVN_WINDOWS)
    find_package(PkgConfig QUIET)
    if(PkgConfig_FOUND)
        pkg_check_modules(QVN_LIBAV QUIET IMPORTED_TARGET libavcodec libswscale libavutil)
    endif()
endif()
if(QVN_LIBAV_FOUND)
    target_sources(qvn_render_host PRIVATE ${dir}/dv_compressor.cpp)
    target_link_libraries(qvn_render_host PUBLIC PkgConfig::QVN_LIBAV)
    target_compile_definitions(qvn_render_host PUBLIC QVNHOST_HAS_LIBAVCODEC=1)
endif()

add_library(qvn_export_command STATIC ${dir}/export_command.cpp ${dir}/export_options.cpp ${dir}/platform_filters.cpp)
target_link_libraries(qvn_export_command PUBLIC qvn_render_host PRIVATE qvn_warnings)
# --graph: the module's DirectShow graph, read through the running-object table (Windows only).
if(QVN_WINDOWS)
    add_library(qvn_graph_report STATIC ${dir}/graph_report.cpp)
    target_include_directories(qvn_graph_report PUBLIC ${PROJECT_SOURCE_DIR})
    target_link_libraries(qvn_graph_report PUBLIC ole32 strmiids uuid oleaut32 PRIVATE qvn_warnings)
    target_link_libraries(qvn_export_command PRIVATE qvn_graph_report)
    target_compile_definitions(qvn_export_command PRIVATE QVNHOST_HAS_GRAPH_REPORT=1)
endif()
if(TARGET qvn_params_command)
    target_link_libraries(qvn_export_command PRIVATE qvn_params_command)
endif()
