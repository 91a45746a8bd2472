# l2cp_rpc_interface(name) makes of name.x in the current source folder
#   name_header      the generated header, included as "<folder>/name.h"
#   name_filters     the XDR filters as a server needs them
#   name_dispatcher  the server's dispatch routine
#   name_client      filters and call stubs for a client
# Both kinds of filters are compiled with rpc/inline_filters.h for the types of fields, and with
# LIST_FILTER header with that one for the elements of lists.
# With TEXT_FILTER header function, name_filters sends texts through that function instead of
# xdr_string. Clients keep the plain one: their own over-long texts have to fail.

find_program(RPCGEN rpcgen REQUIRED)

function(l2cp_rpc_interface name)
  cmake_parse_arguments(arg "" LIST_FILTER TEXT_FILTER ${ARGN})
  cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY ${CMAKE_SOURCE_DIR}
             OUTPUT_VARIABLE folder)
  set(generated ${CMAKE_BINARY_DIR}/generated)
  set(out ${generated}/${folder})
  file(MAKE_DIRECTORY ${out})

  # rpcgen writes the path of the interface file, as it is given, into the #include it generates.
  foreach(part IN ITEMS h:${name}.h c:${name}_xdr.c m:${name}_svc.c l:${name}_clnt.c)
    string(REGEX MATCH "^(.):(.*)$" matched ${part})
    set(flag ${CMAKE_MATCH_1})
    set(file ${out}/${CMAKE_MATCH_2})
    add_custom_command(
      OUTPUT ${file}
      COMMAND ${CMAKE_COMMAND} -E rm -f ${file}
      COMMAND ${RPCGEN} -N -${flag} -o ${file} ${folder}/${name}.x
      WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}
      DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}.x
      VERBATIM)
  endforeach()
  # One target runs rpcgen, so that parallel builds of the others do not run it twice.
  add_custom_target(${name}_generated
    DEPENDS ${out}/${name}.h ${out}/${name}_xdr.c ${out}/${name}_svc.c ${out}/${name}_clnt.c)

  add_library(${name}_header INTERFACE)
  target_include_directories(${name}_header SYSTEM INTERFACE ${generated})
  target_link_libraries(${name}_header INTERFACE PkgConfig::TIRPC)
  add_dependencies(${name}_header ${name}_generated)

  add_library(${name}_filters OBJECT ${out}/${name}_xdr.c)
  add_library(${name}_dispatcher OBJECT ${out}/${name}_svc.c)
  add_library(${name}_client STATIC ${out}/${name}_xdr.c ${out}/${name}_clnt.c)
  foreach(target IN ITEMS ${name}_filters ${name}_dispatcher ${name}_client)
    # Filters call each other for every field; that is to be inlined, too.
    target_compile_options(${target} PRIVATE -w -fno-semantic-interposition)
    target_link_libraries(${target} PUBLIC ${name}_header)
    add_dependencies(${target} ${name}_generated)
  endforeach()
  foreach(target IN ITEMS ${name}_filters ${name}_client)
    target_compile_options(${target} PRIVATE -fno-builtin-malloc
      "SHELL:-include rpc/inline_filters.h")
    if(arg_LIST_FILTER)
      target_compile_options(${target} PRIVATE "SHELL:-include ${arg_LIST_FILTER}")
    endif()
  endforeach()
  if(arg_TEXT_FILTER)
    list(GET arg_TEXT_FILTER 0 header)
    list(GET arg_TEXT_FILTER 1 function)
    target_compile_options(${name}_filters PRIVATE "SHELL:-include ${header}")
    target_compile_definitions(${name}_filters PRIVATE xdr_string=${function})
  endif()
endfunction()
