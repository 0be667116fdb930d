# Shell completions of a host tool, which makes them from its own tables.
function(tool_completions target)
    set(folder ${CMAKE_BINARY_DIR}/completions)
    file(MAKE_DIRECTORY ${folder})
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${target}> --completion bash > ${folder}/${target}
        COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${target}> --completion zsh > ${folder}/_${target}
        COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${target}> --completion fish > ${folder}/${target}.fish
        VERBATIM)
    install(FILES ${folder}/${target} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
    install(FILES ${folder}/_${target} DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT tools)
    install(FILES ${folder}/${target}.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d
        COMPONENT tools)
endfunction()
