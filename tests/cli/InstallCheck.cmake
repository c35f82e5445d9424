# cmake --install, checked: run with -DBUILD=<build tree> -DROOT=<scratch folder> and HOME set to
# ROOT/home. A prefix in the home puts the bundles in ~/.vst3 and ~/.lv2; another prefix in
# PREFIX/lib. The installed tool finds its factory presets by name.
file(REMOVE_RECURSE "${ROOT}")
set(home "${ROOT}/home")
set(user "${home}/.local")
set(system "${ROOT}/usr")

function(expect path)
    if(NOT EXISTS "${path}")
        message(FATAL_ERROR "not installed: ${path}")
    endif()
endfunction()

foreach(prefix "${user}" "${system}")
    execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${prefix}"
                    RESULT_VARIABLE failed OUTPUT_QUIET)
    if(failed)
        message(FATAL_ERROR "cmake --install --prefix ${prefix} failed")
    endif()
    expect("${prefix}/bin/kelfiner")
    expect("${prefix}/bin/Kelfiner")
    expect("${prefix}/share/kelfiner/Presets/Podcast voice.xml")
    expect("${prefix}/share/man/man1/kelfiner.1")
    expect("${prefix}/share/bash-completion/completions/kelfiner")
endforeach()
expect("${home}/.vst3/Kelfiner.vst3/Contents/x86_64-linux/Kelfiner.so")
expect("${home}/.lv2/Kelfiner.lv2/manifest.ttl")
expect("${system}/lib/vst3/Kelfiner.vst3")
expect("${system}/lib/lv2/Kelfiner.lv2/manifest.ttl")

execute_process(COMMAND "${system}/bin/kelfiner" presets OUTPUT_VARIABLE listed RESULT_VARIABLE failed)
if(failed OR NOT listed MATCHES "Podcast voice[^\n]*${system}/share/kelfiner/Presets")
    message(FATAL_ERROR "the installed tool does not find its presets:\n${listed}")
endif()
