# sonorel_aidl_sources(OUT_VAR INCLUDE_DIR file.aidl ...)
# Generates C++ stubs, proxies and parcelables at build time. The paths are relative to the current
# source folder and name the package. OUT_VAR receives the generated .cpp files; INCLUDE_DIR receives
# the folder of the generated headers.
find_program(AIDL_PROGRAM aidl REQUIRED)

function(sonorel_aidl_sources out_sources out_include)
    set(generated ${CMAKE_CURRENT_BINARY_DIR}/gen)
    set(headers ${generated}/include)
    set(sources "")
    foreach(file ${ARGN})
        get_filename_component(folder ${file} DIRECTORY)
        get_filename_component(stem ${file} NAME_WE)
        string(REGEX REPLACE "^I([A-Z].*)" "\\1" base ${stem})
        set(cpp ${generated}/${folder}/${stem}.cpp)
        add_custom_command(
            OUTPUT ${cpp} ${headers}/${folder}/${stem}.h ${headers}/${folder}/Bn${base}.h ${headers}/${folder}/Bp${base}.h
            COMMAND ${CMAKE_COMMAND} -E make_directory ${headers} ${generated}
            COMMAND ${AIDL_PROGRAM} --lang=cpp --structured -I ${CMAKE_CURRENT_SOURCE_DIR}
                    -h ${headers} -o ${generated} ${CMAKE_CURRENT_SOURCE_DIR}/${file}
            # Every file is an input of every stub: the definitions import each other.
            DEPENDS ${ARGN}
            COMMENT "Generating stubs of ${file}"
            VERBATIM)
        list(APPEND sources ${cpp})
    endforeach()
    set(${out_sources} ${sources} PARENT_SCOPE)
    set(${out_include} ${headers} PARENT_SCOPE)
endfunction()
