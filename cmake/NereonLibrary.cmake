# Helpers shared by the project's libraries. Each library is compiled once into an
# object library (tests and fuzz targets link those objects and reach internals);
# applications link a shared library made from the same objects, installed as a
# component of the package:
#   find_package(TernwickNereonVisualisation 2 REQUIRED COMPONENTS <Component>)

# nereon_add_objects(<objects-target> <NAME> SOURCES <files...>)
# An object library with hidden visibility whose exported classes are marked by
# the generated header TernwickNereon<NAME>Export.h (macro TERNWICK_NEREON_<UPPER>_EXPORT).
function(nereon_add_objects target name)
    cmake_parse_arguments(arg "" "" "SOURCES" ${ARGN})
    string(TOUPPER "${name}" upper)
    string(TOLOWER "${name}" lower)
    add_library(${target} OBJECT ${arg_SOURCES})
    set_target_properties(${target} PROPERTIES
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)
    target_compile_definitions(${target} PRIVATE ternwick_nereon_${lower}_EXPORTS)
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
        $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}>
        $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>)
    generate_export_header(${target}
        BASE_NAME TERNWICK_NEREON_${upper}
        EXPORT_FILE_NAME ${PROJECT_BINARY_DIR}/include/TernwickNereon${name}Export.h)
endfunction()

# nereon_add_component_library(<objects-target> <NAME> [HEADERS <files...>]
#                              [PUBLIC <links...>] [PRIVATE <links...>])
# The shared library ternwick-nereon-<name> (target Ternwick::Nereon<NAME>) from the
# objects, with its public headers (installed under include/<name>/), its export
# header and the package component <NAME>.
function(nereon_add_component_library objects name)
    cmake_parse_arguments(arg "" "" "HEADERS;PUBLIC;PRIVATE" ${ARGN})
    string(TOLOWER "${name}" lower)
    set(target ternwick-nereon-${lower})
    add_library(${target} SHARED $<TARGET_OBJECTS:${objects}>)
    add_library(Ternwick::Nereon${name} ALIAS ${target})
    set_target_properties(${target} PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        OUTPUT_NAME ternwick-nereon-${lower}${NEREON_FLAVOUR_SUFFIX}
        EXPORT_NAME Nereon${name}
        INSTALL_RPATH "$ORIGIN")
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
        $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
        $<INSTALL_INTERFACE:${NEREON_INSTALL_INCLUDEDIR}>)
    target_link_libraries(${target} PUBLIC ${arg_PUBLIC} PRIVATE ${arg_PRIVATE})

    install(TARGETS ${target} EXPORT TernwickNereon${name}Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
    install(FILES ${arg_HEADERS} DESTINATION ${NEREON_INSTALL_INCLUDEDIR}/${lower})
    install(FILES ${PROJECT_BINARY_DIR}/include/TernwickNereon${name}Export.h
        DESTINATION ${NEREON_INSTALL_INCLUDEDIR})
    install(EXPORT TernwickNereon${name}Targets
        NAMESPACE Ternwick::
        FILE ${NEREON_PACKAGE_NAME}${name}Targets.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/${NEREON_PACKAGE_NAME})
endfunction()
