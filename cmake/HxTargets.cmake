# Shared compile settings for every target of the project.
add_library(hx_compile_options INTERFACE)
add_library(Hx::CompileOptions ALIAS hx_compile_options)
target_compile_options(hx_compile_options INTERFACE -Wall -Wextra)
target_compile_definitions(hx_compile_options INTERFACE QT_DEPRECATED_WARNINGS)

if(HX_SANITIZE)
    target_compile_options(hx_compile_options INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_link_options(hx_compile_options INTERFACE -fsanitize=address,undefined)
endif()

# A library that lives in Frameworks/ and is found by bare name through the run path.
function(hx_framework_library target)
    set_target_properties(${target} PROPERTIES
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        BUILD_RPATH "$ORIGIN"
        INSTALL_RPATH "$ORIGIN"
        PREFIX "lib")
    target_link_libraries(${target} PRIVATE Hx::CompileOptions)
endfunction()

# An executable in bin/ that finds the libraries of Frameworks/ by bare name.
function(hx_executable target)
    set_target_properties(${target} PROPERTIES
        BUILD_RPATH "$ORIGIN/../Frameworks"
        INSTALL_RPATH "$ORIGIN/../Frameworks")
    target_link_libraries(${target} PRIVATE Hx::CompileOptions)
endfunction()

# A static library compiled into each shared library that needs it (each keeps its own copy).
function(hx_static_library target)
    set_target_properties(${target} PROPERTIES
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)
    target_link_libraries(${target} PRIVATE Hx::CompileOptions)
endfunction()
