# Debian packages, made by `cpack -G DEB` (scripts/package does it for a release): one for each part of the tree.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME netrove)
set(CPACK_PACKAGE_VENDOR netrove)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # it would be put before the description of each package
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development tool)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/debian/FinishTree.cmake)
set(CPACK_NETROVE_DEBIAN_FOLDER ${CMAKE_CURRENT_SOURCE_DIR}/debian)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "netrove maintainers <maintainers@netrove.example.org>")
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE ${PROJECT_HOMEPAGE_URL})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The packages' own libraries are found where they were built, the others through the packages that own them.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(same_version "(= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libnetrove0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "ca-certificates, shared-mime-info")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "HTTP client library for C++ programs
Calls with redirects, retries, files that are whole or not there, forms,
logins and proxies, many at a time if wanted, on libcurl. A lower layer shows
requests and responses as objects of a host.

This package holds the client library, the host below it, the module with the
class that both use, and its messages.")
# Programs that are packaged with this library depend on the versions that its soname stands for.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  math(EXPR next "${PROJECT_VERSION_MINOR} + 1")
  set(NETROVE_BELOW 0.${next})
else()
  math(EXPR NETROVE_BELOW "${PROJECT_VERSION_MAJOR} + 1")
endif()
configure_file(debian/shlibs.in debian/shlibs @ONLY)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_BINARY_DIR}/debian/shlibs ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libnetrove-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libnetrove0 ${same_version}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS netrove)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "HTTP client library for C++ programs - development files
Calls with redirects, retries, files that are whole or not there, forms,
logins and proxies, many at a time if wanted, on libcurl. A lower layer shows
requests and responses as objects of a host.

This package holds headers, files for CMake and pkg-config, documentation and
examples.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME netrove)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION web)
# Servers are verified against the certificates of the system, so they have to be there.
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "libnetrove0 ${same_version}, ca-certificates")
set(CPACK_DEBIAN_TOOL_DESCRIPTION "command line for HTTP requests and transfers
Fetches, saves and sends over HTTP and HTTPS: files that are complete or not
there at all, uploads of any size, progress, time limits, proxies and logins,
with an exit status for each kind of failure.")

if(NETROVE_PYTHON)
  list(APPEND CPACK_COMPONENTS_ALL python)
  math(EXPR next "${Python_VERSION_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-netrove)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  # The extension is for the Python that it was built with.
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "libnetrove0 ${same_version}, ca-certificates,\
 python3 (>= ${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}~), python3 (<< ${Python_VERSION_MAJOR}.${next})")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS python3-tqdm)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
      ${CMAKE_CURRENT_SOURCE_DIR}/debian/postinst ${CMAKE_CURRENT_SOURCE_DIR}/debian/prerm)
  set(CPACK_DEBIAN_PYTHON_DESCRIPTION "HTTP client for Python
Requests under the names that users of requests and httpx know, with limits for
silence, files that are whole or not there and resume, many at a time if
wanted, also for asyncio. Ctrl-C ends a call within a second in every phase.

This package holds the modules for Python 3, with their types.")
endif()

include(CPack)
