# What CPack runs once everything is installed below CPACK_TEMPORARY_DIRECTORY: one folder, of which the packages are made.
file(REMOVE_RECURSE ${CPACK_LUMLOG_OUT})
execute_process(
    COMMAND python3 ${CPACK_LUMLOG_SOURCE}/packaging/make_packages.py --stage ${CPACK_TEMPORARY_DIRECTORY} --version
            ${CPACK_PACKAGE_VERSION} --build ${CPACK_LUMLOG_BUILD} --out ${CPACK_LUMLOG_OUT} COMMAND_ERROR_IS_FATAL ANY)
