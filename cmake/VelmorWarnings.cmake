# Warning flags shared by every target of the project.
add_library(velmor_warnings INTERFACE)
target_compile_options(velmor_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
  $<$<BOOL:${VELMOR_WERROR}>:-Werror>)
