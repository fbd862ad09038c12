# The static library libACE, as the imported target ACE::ACE.

find_path(ACE_INCLUDE_DIR ace/ACE.h)
find_library(ACE_LIBRARY ACE)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(ACE REQUIRED_VARS ACE_LIBRARY ACE_INCLUDE_DIR)
mark_as_advanced(ACE_INCLUDE_DIR ACE_LIBRARY)

if(ACE_FOUND AND NOT TARGET ACE::ACE)
    add_library(ACE::ACE STATIC IMPORTED)
    set_target_properties(
        ACE::ACE
        PROPERTIES IMPORTED_LOCATION ${ACE_LIBRARY}
                   INTERFACE_INCLUDE_DIRECTORIES ${ACE_INCLUDE_DIR}
                   INTERFACE_LINK_LIBRARIES "ws2_32;iphlpapi;mswsock;netapi32")
    # As the library was built: its headers choose inline definitions and exports by these.
    set_property(
        TARGET ACE::ACE
        PROPERTY INTERFACE_COMPILE_DEFINITIONS ACE_AS_STATIC_LIBS ACE_HAS_CUSTOM_EXPORT_MACROS=0
                 __ACE_INLINE__ ACE_NDEBUG)
endif()
