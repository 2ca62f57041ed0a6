# Runs gradient_bits once through the runner and once through machine code,
# and fails unless both write the same file. EMULATOR, if given, runs it
# (a cross build's).
foreach(mode interpreted machine)
  if(mode STREQUAL "interpreted")
    set(after -1)
  else()
    set(after 0)
  endif()
  set(file ${DIR}/gradient_bits_${mode}.txt)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -E env VEXA_MACHINE_CODE_AFTER=${after} ${EMULATOR} ${TEST} ${file}
    RESULT_VARIABLE failed OUTPUT_QUIET)
  if(failed)
    message(FATAL_ERROR "gradient_bits failed (${mode})")
  endif()
endforeach()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${DIR}/gradient_bits_interpreted.txt
                        ${DIR}/gradient_bits_machine.txt RESULT_VARIABLE differ)
if(differ)
  message(FATAL_ERROR "the gradient's machine code and its runner disagree: diff ${DIR}/gradient_bits_*.txt")
endif()
file(STRINGS ${DIR}/gradient_bits_machine.txt lines)
list(LENGTH lines count)
if(count LESS 500)
  message(FATAL_ERROR "only ${count} gradients compared")
endif()
