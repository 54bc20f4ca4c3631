# The folders of a package are open to all, whatever the umask of its builder is.
file(GLOB_RECURSE entries LIST_DIRECTORIES true "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*")
foreach(entry IN LISTS entries)
    # A link may lead into another component's tree, or nowhere yet.
    if(IS_DIRECTORY "${entry}" AND NOT IS_SYMLINK "${entry}")
        file(CHMOD "${entry}" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
            GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    endif()
endforeach()
