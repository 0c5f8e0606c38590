# How this project's targets are made.

if(NOT CMAKE_CXX_COMPILER_LAUNCHER)
  find_program(WAYLOOM_CCACHE ccache)
  if(WAYLOOM_CCACHE AND PROJECT_IS_TOP_LEVEL)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${WAYLOOM_CCACHE})
  endif()
endif()
if(PROJECT_IS_TOP_LEVEL)
  find_program(WAYLOOM_MOLD mold)
  if(WAYLOOM_MOLD)
    add_link_options(-fuse-ld=mold)
  endif()
endif()

# Warnings of our own code; errors only where a preset says so, never for those who consume the package.
function(wayloom_compile_options target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-unused-parameter
                                           $<$<BOOL:${WAYLOOM_WERROR}>:-Werror>)
  # Optimising, g++ 12 gives these without reason: for empty optionals, for frames on the stack, in std::string.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized -Wno-dangling-pointer -Wno-restrict)
    if(CMAKE_UNITY_BUILD)
      target_compile_options(${target} PRIVATE -Wno-subobject-linkage)  # takes files put together for headers
    endif()
  endif()
endfunction()

# Where a preset sets CMAKE_UNITY_BUILD, so many files are compiled as one: reading the headers of the JSON library and of
# the tests, and making their templates, is most of what a file costs.
set(CMAKE_UNITY_BUILD_BATCH_SIZE 7)

# One object library a core module, from all sources of its folder; headers of the module's own stay in the folder.
function(wayloom_module name)
  file(GLOB sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${name}/*.cpp")
  add_library(wayloom_${name} OBJECT ${sources})
  wayloom_compile_options(wayloom_${name})
  set_target_properties(wayloom_${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_include_directories(wayloom_${name} PUBLIC "${PROJECT_SOURCE_DIR}/include" PRIVATE "${PROJECT_SOURCE_DIR}")
  target_link_libraries(wayloom_${name} PUBLIC nlohmann_json::nlohmann_json Threads::Threads)
endfunction()

# The core modules together: wayloom::wayloom.
function(wayloom_core_library)
  add_library(wayloom STATIC)
  add_library(wayloom::wayloom ALIAS wayloom)
  foreach(module IN LISTS ARGN)
    target_sources(wayloom PRIVATE $<TARGET_OBJECTS:wayloom_${module}>)
  endforeach()
  target_compile_features(wayloom PUBLIC cxx_std_20)
  target_include_directories(wayloom PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                                            $<INSTALL_INTERFACE:include>)
  target_link_libraries(wayloom PUBLIC nlohmann_json::nlohmann_json Threads::Threads)
endfunction()

# A backend: wayloom::<name>, from all sources of its folder.
function(wayloom_backend name)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  add_library(wayloom_${name} STATIC ${sources})
  add_library(wayloom::${name} ALIAS wayloom_${name})
  wayloom_compile_options(wayloom_${name})
  # A host may put it into a plug-in.
  set_target_properties(wayloom_${name} PROPERTIES EXPORT_NAME ${name} POSITION_INDEPENDENT_CODE ON)
  target_include_directories(wayloom_${name} PRIVATE "${PROJECT_SOURCE_DIR}")
  target_link_libraries(wayloom_${name} PUBLIC wayloom::wayloom)
endfunction()
