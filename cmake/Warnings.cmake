# Warnings are errors everywhere in our own code.
add_library(tessel_warnings INTERFACE)
target_compile_options(tessel_warnings INTERFACE -Wall -Wextra -Werror -Wno-missing-field-initializers)
