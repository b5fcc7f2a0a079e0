# What every target of this project shares: warnings, sanitizers. Properties of targets, never global
# flags, so that a parent project that includes this one keeps its own.

add_library( cairn_options INTERFACE )
target_compile_features( cairn_options INTERFACE cxx_std_20 )
target_compile_options( cairn_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion )
if( CAIRN_WERROR )
    target_compile_options( cairn_options INTERFACE -Werror )
endif()
if( CAIRN_SANITIZE )
    target_compile_options( cairn_options INTERFACE -fsanitize=${CAIRN_SANITIZE}
                            -fno-sanitize-recover=all -fno-omit-frame-pointer -O1 )
    target_link_options( cairn_options INTERFACE -fsanitize=${CAIRN_SANITIZE} )
endif()
