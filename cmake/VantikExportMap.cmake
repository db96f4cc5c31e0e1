# vantik_write_export_map(<file>): the linker's version script of the embedded host. It exports what host/ and the
# embedding API declare. The linker would also export the templates of the standard library and of Boost that were
# instantiated, and a program with another Boost could then replace parts of the host.
function(vantik_write_export_map file)
  set(namespaces vantik vcos matrix fl foundation resource_core services cppmicroservices Zentorak utInterruptState)
  set(functions COSGetPublicClient getSystemClient omCallMethod omGetArrayElement omGetEnumerationID
                omGetNumberOfElementsInUnderlyingArray omGetVcosUsingUSM)
  set(patterns "")
  foreach(namespace IN LISTS namespaces)
    # A blank would end a pattern, so one stands as "?".
    foreach(prefix "" "typeinfo?for?" "typeinfo?name?for?" "vtable?for?" "non-virtual?thunk?to?")
      string(APPEND patterns "      ${prefix}${namespace}::*;\n")
    endforeach()
  endforeach()
  foreach(name IN LISTS functions)
    string(APPEND patterns "      ${name}*;\n")
  endforeach()
  file(CONFIGURE OUTPUT ${file} CONTENT "{
  global:
    utFree;
    extern \"C++\" {
${patterns}    };
  local:
    *;
};
")
endfunction()
