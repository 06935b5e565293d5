# README and EXAMPLE are files: the text of the example has to stand in the readme.
file(READ "${README}" readme)
file(READ "${EXAMPLE}" example)
string(FIND "${readme}" "${example}" position)
if(position EQUAL -1)
    message(FATAL_ERROR "${README} shows another example than ${EXAMPLE}, which is built")
endif()
