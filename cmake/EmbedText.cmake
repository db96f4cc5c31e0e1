# Writes a C++ source that holds a text file as one string. Run at build time:
#   cmake -DINPUT=<file> -DOUTPUT=<source> -DSYMBOL=<name> -DNAMESPACE=<namespace> -P EmbedText.cmake
foreach(name INPUT OUTPUT SYMBOL NAMESPACE)
  if(NOT DEFINED ${name})
    message(FATAL_ERROR "EmbedText.cmake: -D${name}=... is missing")
  endif()
endforeach()

file(READ "${INPUT}" text)
if(text MATCHES "\\)text\"")
  message(FATAL_ERROR "${INPUT}: the characters )text\" cannot be embedded")
endif()
get_filename_component(source "${INPUT}" NAME)
file(WRITE "${OUTPUT}" "// Made from ${source}. Change that file instead.
namespace ${NAMESPACE} {
extern const char ${SYMBOL}[];
const char ${SYMBOL}[] = R\"text(${text})text\";
} // namespace ${NAMESPACE}
")
