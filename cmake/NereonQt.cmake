# The Qt flavour of a build. Qt 5.15 is the default and keeps every name; a Qt 6
# build puts a suffix on its libraries, headers folder, CMake package and
# programs, so that both flavours install side by side into one prefix.
#
#   NEREON_QT                  Qt5 or Qt6: the prefix of the Qt targets (${NEREON_QT}::Widgets)
#   NEREON_QT_MINIMUM_VERSION  the oldest Qt release of the flavour that is supported
#   NEREON_QT_GL_LIBRARIES     what the GL classes need beyond Gui and Widgets
#                              (in Qt 6 they moved into OpenGL and OpenGLWidgets)
#   NEREON_FLAVOUR_SUFFIX      appended to file names: "" or "-qt6"
#   NEREON_PACKAGE_NAME        the CMake package: TernwickNereonVisualisation[Qt6]

set(NEREON_QT_MAJOR_VERSION 5 CACHE STRING "Major version of Qt to build against: 5 (the default) or 6")
set_property(CACHE NEREON_QT_MAJOR_VERSION PROPERTY STRINGS 5 6)

if(NEREON_QT_MAJOR_VERSION STREQUAL "5")
    set(NEREON_QT Qt5)
    set(NEREON_QT_MINIMUM_VERSION 5.15)
    set(nereon_qt_gl_components "")
    set(NEREON_FLAVOUR_SUFFIX "")
    set(NEREON_PACKAGE_NAME TernwickNereonVisualisation)
elseif(NEREON_QT_MAJOR_VERSION STREQUAL "6")
    set(NEREON_QT Qt6)
    set(NEREON_QT_MINIMUM_VERSION 6.2)
    set(nereon_qt_gl_components OpenGL OpenGLWidgets)
    set(NEREON_FLAVOUR_SUFFIX "-qt6")
    set(NEREON_PACKAGE_NAME TernwickNereonVisualisationQt6)
else()
    message(FATAL_ERROR "NEREON_QT_MAJOR_VERSION must be 5 or 6, not '${NEREON_QT_MAJOR_VERSION}'")
endif()

find_package(${NEREON_QT} ${NEREON_QT_MINIMUM_VERSION} REQUIRED
    COMPONENTS Core Gui Widgets Svg Network ${nereon_qt_gl_components})
string(REPLACE ";" " " nereon_qt_gl_components_text "${nereon_qt_gl_components}")
set(NEREON_QT_GL_LIBRARIES "")
foreach(component ${nereon_qt_gl_components})
    list(APPEND NEREON_QT_GL_LIBRARIES ${NEREON_QT}::${component})
endforeach()
message(STATUS "Building against Qt ${${NEREON_QT}_VERSION}; package ${NEREON_PACKAGE_NAME}")
