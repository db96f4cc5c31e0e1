# Run by CPack after installing into its folder and before packing: what else Debian requires, for each part.
find_program(gzip gzip REQUIRED)

function(compress file)
  execute_process(COMMAND ${gzip} -9n ${file} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(permissions FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
    DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
foreach(part IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${part} upper)
  set(root ${CPACK_TEMPORARY_DIRECTORY}/${part}/usr/share)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  file(COPY ${CPACK_NETROVE_DEBIAN_FOLDER}/copyright ${CPACK_NETROVE_DEBIAN_FOLDER}/changelog
      DESTINATION ${root}/doc/${package} ${permissions})
  compress(${root}/doc/${package}/changelog)
  # The pages link to the licence, which every Debian system has already.
  if(EXISTS ${root}/doc/netrove/README.md)
    file(CREATE_LINK ../../common-licenses/Apache-2.0 ${root}/doc/netrove/LICENSE SYMBOLIC)
  endif()
  file(GLOB pages ${root}/man/man*/*)
  foreach(page IN LISTS pages)
    compress(${page})
  endforeach()
  set(overrides ${CPACK_NETROVE_DEBIAN_FOLDER}/${package}.lintian-overrides)
  if(EXISTS ${overrides})
    file(COPY ${overrides} DESTINATION ${root}/lintian/overrides ${permissions})
    file(RENAME ${root}/lintian/overrides/${package}.lintian-overrides ${root}/lintian/overrides/${package})
  endif()
endforeach()
