function(zorcam_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Wmissing-declarations)
    if(ZORCAM_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()
