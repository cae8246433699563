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

# A release of the library is optimised as a whole: a request crosses many small functions of many files. The objects are fat, so that who
# links them or libtav.a without link-time optimisation finds ordinary code. -O2, because all of it has to fit into the instruction cache.
string(REPLACE "-O3" "-O2" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")
include(CheckIPOSupported)
check_ipo_supported(RESULT TAV_IPO OUTPUT TAV_IPO_OUTPUT LANGUAGES CXX)
set(TAV_IPO_COMPILE "")
set(TAV_IPO_LINK "") # for targets that link the floors' objects and want them optimised together
if(TAV_IPO AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT TAV_SANITIZE)
  set(TAV_IPO_COMPILE $<$<CONFIG:Release>:-flto=auto> $<$<CONFIG:Release>:-ffat-lto-objects>)
  set(TAV_IPO_LINK $<$<CONFIG:Release>:-flto=auto>)
endif()
# The library calls its exported functions as it calls any other, and others' without a detour: nobody replaces them from outside.
set(TAV_DIRECT_CALLS -fno-plt $<$<CXX_COMPILER_ID:GNU>:-fno-semantic-interposition>)

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
    target_compile_options(tav_${name} PRIVATE ${TAV_IPO_COMPILE} ${TAV_DIRECT_CALLS})
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
