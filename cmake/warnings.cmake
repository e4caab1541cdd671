# Our own code: warnings are errors, floating point means what it says.
function(quorix_strict target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -ffp-contract=off)
endfunction()
