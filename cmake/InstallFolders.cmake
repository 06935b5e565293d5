# The usual folders. Files whose names could be somebody else's, such as libCore.so, are in folders of
# their own:
#   <libdir>/talvensor          libCore.so.1; for developers also libCore.so and the client library
#   <libdir>/talvensor/modules  the modules that talvensor-host loads
#   <datadir>/talvensor/models  their information models
#   <includedir>/talvensor      the public headers
include(GNUInstallDirs)
set(TALVENSOR_INSTALL_LIBDIR ${CMAKE_INSTALL_LIBDIR}/talvensor)
set(TALVENSOR_INSTALL_MODULEDIR ${CMAKE_INSTALL_LIBDIR}/talvensor/modules)
set(TALVENSOR_INSTALL_MODELDIR ${CMAKE_INSTALL_DATADIR}/talvensor/models)
set(TALVENSOR_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/talvensor)

# Programs find these folders from their own, so that an installation can be moved.
file(RELATIVE_PATH TALVENSOR_LIBRARIES_FROM_PROGRAMS
    ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR}/talvensor)
file(RELATIVE_PATH TALVENSOR_MODULES_FROM_PROGRAMS
    ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR}/talvensor/modules)
file(RELATIVE_PATH TALVENSOR_MODELS_FROM_PROGRAMS
    ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_DATADIR}/talvensor/models)

# The build has them in the same places.
set(TALVENSOR_BUILT_MODULES ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${TALVENSOR_MODULES_FROM_PROGRAMS})
set(TALVENSOR_BUILT_MODELS ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${TALVENSOR_MODELS_FROM_PROGRAMS})
