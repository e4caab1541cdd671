# Our own code: warnings are errors, floating point means what it says.
function(quorix_strict target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -ffp-contract=off
    # g++ 12 sees overlapping copies in std::string's operator+ where there are none (its bug 105651).
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
endfunction()
