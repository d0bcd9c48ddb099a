# One interface target that carries the warnings and the sanitizers of a preset.
add_library(qm_warnings INTERFACE)
target_compile_options(qm_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual)
if(QM7105_WERROR)
    target_compile_options(qm_warnings INTERFACE -Werror)
endif()
if(QM7105_SANITIZE)
    target_compile_options(qm_warnings INTERFACE
        -fsanitize=${QM7105_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(qm_warnings INTERFACE -fsanitize=${QM7105_SANITIZE})
endif()
