# Empties FOLDER, or makes it: cmake -DFOLDER=... -P EmptyFolder.cmake
file(REMOVE_RECURSE ${FOLDER})
file(MAKE_DIRECTORY ${FOLDER})
