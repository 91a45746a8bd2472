# l2cp_bpf_object(source object [option...]): compiles a program for the machine of the kernel.

find_program(BPF_CLANG NAMES clang clang-19 clang-16 clang-15 clang-14 REQUIRED)

function(l2cp_bpf_object source object)
  cmake_path(GET object PARENT_PATH folder)
  file(MAKE_DIRECTORY ${folder})
  add_custom_command(OUTPUT ${object}
    COMMAND ${BPF_CLANG} -O2 -g -target bpf -mcpu=v3 -Wall -Wextra -Werror ${ARGN}
      -ffile-prefix-map=${CMAKE_SOURCE_DIR}/= -I${CMAKE_SOURCE_DIR}
      $<$<BOOL:${CMAKE_LIBRARY_ARCHITECTURE}>:-idirafter/usr/include/${CMAKE_LIBRARY_ARCHITECTURE}>
      -MD -MF ${object}.d -MT ${object} -c ${source} -o ${object}
    DEPENDS ${source}
    DEPFILE ${object}.d
    VERBATIM)
endfunction()
