# nereon_linked_qt_major(<out-var>)
# The major version of the Qt that the visualisation library links, so that
# add-ons (the Designer plugin, its test) build against the same Qt and never
# load two Qt versions into one process.
function(nereon_linked_qt_major out_var)
    get_target_property(links ternwick-nereon-visualisation INTERFACE_LINK_LIBRARIES)
    if(links MATCHES "Qt([0-9]+)::")
        set(major ${CMAKE_MATCH_1})
    elseif(DEFINED QT_VERSION_MAJOR)
        set(major ${QT_VERSION_MAJOR})
    elseif(TARGET Qt6::Core)
        set(major 6)
    else()
        set(major 5)
    endif()
    set(${out_var} ${major} PARENT_SCOPE)
endfunction()
