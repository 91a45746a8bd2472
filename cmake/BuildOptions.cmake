# One place for what every target is compiled with.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

include_directories(${CMAKE_SOURCE_DIR})

# Boost.Bind asks to be told that its placeholders are wanted where it always put them.
add_compile_definitions(BOOST_BIND_GLOBAL_PLACEHOLDERS)

if(L2CP_SANITIZE)
  add_compile_options(-fsanitize=${L2CP_SANITIZE} -fno-omit-frame-pointer)
  # For tests that work otherwise then, by the one name that all compilers understand.
  add_compile_definitions(L2CP_SANITIZED)
  add_link_options(-fsanitize=${L2CP_SANITIZE})
  # The sanitizers' dlopen looks for libraries where they themselves would, unless the program's path
  # holds for everybody.
  add_link_options(-Wl,--disable-new-dtags)
  if(L2CP_SANITIZE MATCHES undefined)
    add_compile_options(-fno-sanitize-recover=undefined)
    add_link_options(-fno-sanitize-recover=undefined)
  endif()
endif()
if(L2CP_FUZZ)
  # Shows libFuzzer which code an input reaches.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
add_link_options(-Wl,--as-needed)

# l2cp_optimise(target): for what is too slow without, also under sanitizers.
function(l2cp_optimise target)
  target_compile_options(${target} PRIVATE $<$<CONFIG:Debug>:-O1>)
endfunction()

# l2cp_precompile(target header...): compiles headers that most of its files include once, where only
# time to compile counts. The release build goes without, and so proves that each file includes what
# it needs.
function(l2cp_precompile target)
  if(L2CP_SANITIZE)
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()

# l2cp_warnings(target): the warnings that our own code is free of. Generated code goes without. With
# sanitizers, gcc's flow analysis is misled by their code into warnings about the standard library.
function(l2cp_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wundef -Wunused
    $<$<BOOL:${L2CP_WERROR}>:-Werror>)
  if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    target_compile_options(${target} PRIVATE -Wreserved-identifier)
  elseif(L2CP_SANITIZE)
    target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
  endif()
endfunction()
