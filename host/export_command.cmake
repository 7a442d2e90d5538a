# qvnhost export: the render side of the host (sequence source, video and audio renderers, progress, image
# processing) and the command that drives a whole export through the module.
set(dir ${CMAKE_CURRENT_LIST_DIR})
add_library(qvn_render_host STATIC
    ${dir}/picture_writer.cpp ${dir}/frame_stamp.cpp ${dir}/sequence_source.cpp ${dir}/render_scheduler.cpp
    ${dir}/render_suites.cpp ${dir}/sequence_audio.cpp ${dir}/audio_conversion.cpp ${dir}/progress_suite.cpp
    ${dir}/image_processing_suite.cpp ${dir}/request_hook.cpp)
target_link_libraries(qvn_render_host PUBLIC qvnhost_core PRIVATE qvn_warnings)

# DV compression through libavcodec: the system's natively, on Windows the minimal static one that
# cmake/libavcodec-mingw.sh builds from Debian's source package. Without it the host says it cannot compress.
set(QVN_LIBAVCODEC_MINGW ${PROJECT_SOURCE_DIR}/build/libavcodec-mingw/install
    CACHE PATH "the MinGW-w64 libavcodec, libswscale and libavutil for qvnhost.exe")
if(NOT QVN_WINDOWS)
    find_package(PkgConfig QUIET)
    if(PkgConfig_FOUND)
        pkg_check_modules(QVN_LIBAV QUIET IMPORTED_TARGET libavcodec libswscale libavutil)
    endif()
    if(QVN_LIBAV_FOUND)
        add_library(qvn_libav ALIAS PkgConfig::QVN_LIBAV)
    endif()
elseif(EXISTS ${QVN_LIBAVCODEC_MINGW}/lib/libavcodec.a)
    add_library(qvn_libav INTERFACE)
    target_include_directories(qvn_libav SYSTEM INTERFACE ${QVN_LIBAVCODEC_MINGW}/include)
    target_link_libraries(qvn_libav INTERFACE ${QVN_LIBAVCODEC_MINGW}/lib/libavcodec.a
                          ${QVN_LIBAVCODEC_MINGW}/lib/libswscale.a ${QVN_LIBAVCODEC_MINGW}/lib/libavutil.a bcrypt user32)
endif()
if(TARGET qvn_libav)
    target_sources(qvn_render_host PRIVATE ${dir}/dv_compressor.cpp)
    target_link_libraries(qvn_render_host PUBLIC qvn_libav)
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
