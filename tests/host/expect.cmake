# Runs one command and checks its exit status and output.
#   -DCOMMAND="prog;arg;..." -DEXPECT_RC=N [-DEXPECT_OUT="regex;regex"] [-DEXPECT_ERR="regex"]
# Every regex must match (stdout for EXPECT_OUT, stderr for EXPECT_ERR).
execute_process(COMMAND ${COMMAND} RESULT_VARIABLE rc OUTPUT_VARIABLE OUT ERROR_VARIABLE ERR)
set(failed "")
if(NOT "${rc}" STREQUAL "${EXPECT_RC}")
    string(APPEND failed "exit status ${rc}, expected ${EXPECT_RC}\n")
endif()
foreach(stream OUT ERR)
    foreach(re IN LISTS EXPECT_${stream})
        if(NOT "${${stream}}" MATCHES "${re}")
            string(APPEND failed "standard ${stream} does not match: ${re}\n")
        endif()
    endforeach()
endforeach()
if(failed)
    message(FATAL_ERROR "${failed}--- stdout\n${OUT}--- stderr\n${ERR}")
endif()
