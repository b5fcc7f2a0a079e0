# What every target of this project shares: warnings, hardening, sanitizers. Properties of a target that the
# others link, never global flags, so that a parent project that includes this one keeps its own.

add_library( cairn_options INTERFACE )
target_compile_features( cairn_options INTERFACE cxx_std_20 )
target_compile_options( cairn_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion )
if( CAIRN_WERROR )
    target_compile_options( cairn_options INTERFACE -Werror )
endif()

# The bytes of a build do not depend on where it was made.
target_compile_options( cairn_options INTERFACE
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=build )

target_compile_options( cairn_options INTERFACE -fstack-protector-strong )
target_link_options( cairn_options INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack )
if( CAIRN_SANITIZE )
    # g++ 12 takes its own library's instrumented code for uninitialised; the plain builds have the warning.
    target_compile_options( cairn_options INTERFACE -Wno-maybe-uninitialized )
    target_compile_options( cairn_options INTERFACE -fsanitize=${CAIRN_SANITIZE}
                            -fno-sanitize-recover=all -fno-omit-frame-pointer )
    target_link_options( cairn_options INTERFACE -fsanitize=${CAIRN_SANITIZE} )
else()
    # Fortified calls need an optimised build; sanitizers check more than they do.
    target_compile_definitions( cairn_options INTERFACE
                                $<$<CONFIG:Release>:_FORTIFY_SOURCE=2> )
endif()
