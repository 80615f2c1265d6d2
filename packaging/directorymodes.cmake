# Run by cpack on the staged installation before it is packed. A package carries the modes of its
# directories onto every computer it is installed on, so they must not depend on the umask of whoever
# happened to build it: the usual 755 for all of them. Files already get their modes from the install
# rules.
file(CHMOD_RECURSE ${CPACK_TEMPORARY_INSTALL_DIRECTORY}
    DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
