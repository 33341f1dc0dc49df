# Layers the compiler enforces. The source root is on no target's include
# path: each library gets an include directory of its own under
# build/include/<target>/ holding a link to its folder (or, where two
# libraries share a folder, links to just its headers), and sees the folders
# of the libraries it links through their usage requirements. An include
# against the layering then fails to compile ("No such file"), not to link.
set(OV_INCLUDE_ROOT ${PROJECT_BINARY_DIR}/include)

# ov_include_dir(<target> PUBLIC|PRIVATE <folder> [HEADERS <name>...])
# Makes "<folder>/x.h" includable by <target> (PUBLIC: and by what links it).
# <folder> is relative to the source root and may be nested (tests/support).
# With HEADERS only those headers of the folder are.
function(ov_include_dir target scope folder)
  cmake_parse_arguments(PARSE_ARGV 3 arg "" "" "HEADERS")
  set(dir ${OV_INCLUDE_ROOT}/${target})
  set(link ${dir}/${folder})
  if(arg_HEADERS)
    file(MAKE_DIRECTORY ${link})
    foreach(header ${arg_HEADERS})
      file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${folder}/${header} ${link}/${header} SYMBOLIC)
    endforeach()
  else()
    get_filename_component(parent ${link} DIRECTORY)
    file(MAKE_DIRECTORY ${parent})
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${folder} ${link} SYMBOLIC)
  endif()
  target_include_directories(${target} ${scope} ${dir})
endfunction()

# ov_layer_probe(<library> <header>)
# A test that the sources of <library> cannot include <header>: a one-line
# source including it is compiled exactly as the library's own sources are
# (its include directories, options and definitions, and the usage
# requirements of what it links) and must stop at that include.
function(ov_layer_probe library header)
  string(MAKE_C_IDENTIFIER "${library}_${header}" name)
  set(source ${PROJECT_BINARY_DIR}/layer_probes/${name}.cpp)
  file(CONFIGURE OUTPUT ${source} CONTENT "#include \"${header}\"\n")
  set(probe layer_probe_${name})
  add_library(${probe} OBJECT EXCLUDE_FROM_ALL ${source})
  foreach(property INCLUDE_DIRECTORIES COMPILE_OPTIONS COMPILE_DEFINITIONS)
    set_property(TARGET ${probe} PROPERTY ${property} $<TARGET_PROPERTY:${library},${property}>)
  endforeach()
  target_link_libraries(${probe} PRIVATE $<TARGET_PROPERTY:${library},LINK_LIBRARIES>)
  string(REPLACE "." "\\." header_re "${header}")
  add_test(NAME layers_${name}
           COMMAND ${CMAKE_COMMAND} --build ${PROJECT_BINARY_DIR} --target ${probe})
  # Only the missing header counts: any other failure (a broken probe, a
  # busy build tree) does not pass for a proof. gcc and clang word it so.
  set_tests_properties(layers_${name} PROPERTIES
    LABELS build RESOURCE_LOCK build_tree
    PASS_REGULAR_EXPRESSION "${header_re}: No such file or directory|'${header_re}' file not found")
endfunction()
