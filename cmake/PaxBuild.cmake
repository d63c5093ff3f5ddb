# Build rules shared by every folder.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

# Results are bit-exact: no fused multiply-add, no fast math, anywhere.
add_compile_options(-ffp-contract=off -fno-fast-math -Wall -Wextra)

if(WIN32)
  # The DLL and every program import only system DLLs.
  add_link_options(-static -static-libgcc -static-libstdc++)
else()
  set(CMAKE_CXX_VISIBILITY_PRESET hidden)
  set(CMAKE_C_VISIBILITY_PRESET hidden)
  set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
endif()

option(PAX_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
if(PAX_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

option(PAX_SANITIZE_THREAD "Build with ThreadSanitizer" OFF)
if(PAX_SANITIZE_THREAD)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()

# Coverage-guided fuzzing (clang): everything instrumented for libFuzzer and
# checked by AddressSanitizer and UndefinedBehaviorSanitizer.
option(PAX_FUZZ "Build the libFuzzer targets" OFF)
if(PAX_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined
                      -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=address,undefined)
endif()

# Public header, the stand-in on Linux, resource ids, and the platform libraries.
add_library(pax_headers INTERFACE)
target_include_directories(pax_headers INTERFACE ${PROJECT_SOURCE_DIR}/include
                                                 ${PROJECT_SOURCE_DIR}/resources)
if(WIN32)
  target_link_libraries(pax_headers INTERFACE user32 comctl32 kernel32)
else()
  target_include_directories(pax_headers INTERFACE ${PROJECT_SOURCE_DIR}/win32lite)
  target_link_libraries(pax_headers INTERFACE ${CMAKE_DL_LIBS} pthread)
endif()

# pax_add_module(<name> SOURCES ... [DEPENDS ...]): the static library
# pax_<name> of one folder. The DLL takes every module whole.
function(pax_add_module name)
  cmake_parse_arguments(A "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(pax_${name} STATIC ${A_SOURCES})
  target_include_directories(pax_${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(pax_${name} PUBLIC pax_headers ${A_DEPENDS})
  set_property(GLOBAL APPEND PROPERTY PAX_MODULES pax_${name})
endfunction()
