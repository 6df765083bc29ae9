# vexa-serve, the server for development. It carries the settings of the example configuration, the
# directories left to its requests (src/cgi/serve_site.h).

pkg_check_modules(VEXA_MICROHTTPD REQUIRED IMPORTED_TARGET libmicrohttpd)

set(example_configuration ${CMAKE_SOURCE_DIR}/examples/vexa.conf)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${example_configuration})
file(READ ${example_configuration} settings)
string(REGEX REPLACE "#[^\n]*\n" "" settings "${settings}")
string(REPLACE "@STATE@/data" "&[VEXA_SERVE_DATA]" settings "${settings}")
string(REPLACE "@STATE@" "&[VEXA_SERVE_STATE]" settings "${settings}")
string(REPLACE "@SITE@" "&[DOCUMENT_ROOT]" settings "${settings}")
# Who writes pages wants to see what is wrong with them.
string(REPLACE "showerrors=brief" "showerrors=page" settings "${settings}")
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/generated/example_settings.h @ONLY CONTENT
"// Made from examples/vexa.conf.
namespace vexa {
inline constexpr char kExampleSettings[] = R\"(@settings@)\";
}
")

add_executable(vexa-serve ${serve_sources})
target_include_directories(vexa-serve PRIVATE ${CMAKE_BINARY_DIR}/generated)
target_link_libraries(vexa-serve PRIVATE vexa_core PkgConfig::VEXA_MICROHTTPD vexa_program_options)
