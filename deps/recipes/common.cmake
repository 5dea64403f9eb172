# Included by CMake at the end of each library's project() call: what is linked
# from the archives is the same, byte for byte, whenever they were built.

# Link-time optimisation data carries a random number unless a seed is given,
# one that differs from object to object.
string(REPLACE "<FLAGS>" "<FLAGS> -frandom-seed=<OBJECT>"
  CMAKE_C_COMPILE_OBJECT "${CMAKE_C_COMPILE_OBJECT}")

# Archives without times and owners.
set(CMAKE_C_ARCHIVE_CREATE "<CMAKE_AR> qcD <TARGET> <LINK_FLAGS> <OBJECTS>")
set(CMAKE_C_ARCHIVE_APPEND "<CMAKE_AR> qD <TARGET> <LINK_FLAGS> <OBJECTS>")
set(CMAKE_C_ARCHIVE_FINISH "<CMAKE_RANLIB> -D <TARGET>")
