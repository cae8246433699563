# Warnings, sanitizers and the rule that turns a floor's folders into an object library.

add_library(tav_options INTERFACE)
target_compile_options(tav_options INTERFACE -Wall -Wextra -Wpedantic
  $<$<NOT:$<CXX_COMPILER_ID:GNU>>:-Wno-flexible-array-extensions -Wno-unknown-warning-option>
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Wno-missing-field-initializers>
  $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:GNU>>:-Wshadow=local> # scoped enumerators count as shadows with gcc's wider one
  $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:Clang>>:-Wshadow -Wthread-safety>
  $<$<BOOL:${TAV_WERROR}>:-Werror>)
target_include_directories(tav_options INTERFACE ${CMAKE_SOURCE_DIR}/include ${CMAKE_SOURCE_DIR}/src)
if(TAV_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(TAV_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()
if(TAV_BUILD_FUZZ)
  # Coverage for libFuzzer in every part of the library; -O1, because a fuzzer lives on its speed.
  add_compile_options(-fsanitize=fuzzer-no-link -O1)
endif()

# tav_floor(NAME folder...): one object library of every source in the folders.
function(tav_floor name)
  set(sources)
  foreach(folder ${ARGN})
    file(GLOB found CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
    list(APPEND sources ${found})
  endforeach()
  if(sources)
    add_library(tav_${name} OBJECT ${sources})
    target_link_libraries(tav_${name} PUBLIC tav_options PkgConfig::JANSSON Threads::Threads)
    target_compile_definitions(tav_${name} PRIVATE TAV_BUILDING=1 $<$<CONFIG:Debug>:TAV_CHECK_LOCK_ORDER=1>)
    set_property(GLOBAL APPEND PROPERTY TAV_FLOORS tav_${name})
  endif()
endfunction()

# tav_program(TARGET HIGHEST source...): a program of the sources and the objects of every floor up to HIGHEST.
function(tav_program target highest)
  add_executable(${target} ${ARGN})
  target_link_libraries(${target} PRIVATE tav_options PkgConfig::JANSSON Threads::Threads)
  target_compile_definitions(${target} PRIVATE TAV_SOURCE_DIR="${CMAKE_SOURCE_DIR}" TAV_TEST_SANITIZED=$<BOOL:${TAV_SANITIZE}>)
  get_property(floors GLOBAL PROPERTY TAV_FLOORS)
  foreach(floor ${floors})
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:${floor}>)
    if(floor STREQUAL "tav_${highest}")
      break()
    endif()
  endforeach()
endfunction()
