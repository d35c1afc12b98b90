# SPDX-License-Identifier: GPL-3.0-or-later
# Build conventions shared by every Orvane target.

# Compile options for every first-party target: warnings on, Qt's keywords off (GLib headers used by the
# calendar adapter take `signals` as an identifier), sanitizers when asked for.
function(orvane_target_defaults target)
    # Designated initializers that leave members at their declared defaults are the point of those defaults.
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wno-missing-field-initializers)
    if(ORVANE_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    target_compile_definitions(${target} PRIVATE
        QT_NO_KEYWORDS
        QT_NO_CAST_FROM_ASCII
        QT_NO_URL_CAST_FROM_STRING
        QT_NO_NARROWING_CONVERSIONS_IN_CONNECT)
    if(ORVANE_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=address,undefined -fno-omit-frame-pointer
                                                 -fno-sanitize-recover=undefined)
        target_link_options(${target} PRIVATE -fsanitize=address,undefined)
    endif()
    if(ORVANE_BUILD_FUZZERS)
        # Coverage for libFuzzer everywhere, so that a fuzzer explores the library code it calls. Without
        # UndefinedBehaviorSanitizer: clang 14 cannot emit coroutines instrumented by it ("Cannot represent a
        # difference across sections"); the sanitizer test build covers undefined behaviour.
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link,address -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=address)
    endif()
endfunction()

# orvane_add_subsystem(<name> SOURCES <files...> DEPENDS <libraries...>)
#
# One static library per subsystem, named orvane_<name>, whose headers are included as "<name>/File.h".
# A subsystem depends only on the ones below it; DEPENDS is public so that users see their headers.
function(orvane_add_subsystem name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPENDS")
    set(target orvane_${name})
    if(NOT arg_SOURCES)
        # A subsystem whose code has not landed yet still exists as a library, so that its dependants link
        # the same way today as they will tomorrow.
        set(placeholder "${CMAKE_CURRENT_BINARY_DIR}/${name}_library.cpp")
        file(CONFIGURE OUTPUT "${placeholder}" CONTENT "// Generated: the ${name} subsystem has no sources yet.\n")
        set(arg_SOURCES "${placeholder}")
    endif()
    add_library(${target} STATIC ${arg_SOURCES})
    add_library(Orvane::${name} ALIAS ${target})
    target_include_directories(${target} PUBLIC "${PROJECT_SOURCE_DIR}/src")
    target_link_libraries(${target} PUBLIC ${arg_DEPENDS})
    orvane_target_defaults(${target})
endfunction()
