# Code for particular processors: it depends on nothing else here, and the library selects among the
# kernels when it is loaded. An object library, so that a test can call each kernel.
add_library(vantry_cpu OBJECT)
target_link_libraries(vantry_cpu PRIVATE vantry_options)
target_include_directories(vantry_cpu PRIVATE ${PROJECT_SOURCE_DIR})
target_sources(vantry_cpu PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/CpuLevel.cpp
    ${CMAKE_CURRENT_LIST_DIR}/PolyRemainder.cpp
    ${CMAKE_CURRENT_LIST_DIR}/TokenEdges.cpp)
target_sources(vantry PRIVATE $<TARGET_OBJECTS:vantry_cpu>)
# As for the libraries: debug information is stripped when packaging.
target_compile_options(vantry_cpu PRIVATE $<$<CONFIG:Release>:-g>)

# vantry_kernel(SOURCE OPTION...): one that needs instructions beyond the compiler's baseline.
function(vantry_kernel source)
    target_sources(vantry_cpu PRIVATE ${CMAKE_CURRENT_LIST_DIR}/${source})
    set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/${source}
        PROPERTIES COMPILE_OPTIONS "${ARGN}")
endfunction()

if(VANTRY_X86)
    # Hashing a few bytes takes so few instructions that the alignment of its code shows.
    set(hash -mpclmul -msse4.1 -falign-functions=64)
    vantry_kernel(PolyRemainderClmul128.cpp ${hash})
    vantry_kernel(PolyRemainderClmul256.cpp ${hash} -mvpclmulqdq -mavx2 -mbmi -mbmi2)
    vantry_kernel(PolyRemainderClmul512.cpp ${hash} -mvpclmulqdq -mavx512bw -mavx512vl -mbmi -mbmi2)
    vantry_kernel(TokenEdges128.cpp -msse4.1 -mpopcnt)
    vantry_kernel(TokenEdges256.cpp -mavx2 -mbmi -mpopcnt)
    vantry_kernel(TokenEdges512.cpp -mavx512bw -mavx512vl -mavx512vbmi2 -mbmi -mpopcnt)
endif()
