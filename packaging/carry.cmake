# Copies the libraries that a program needs, directly or through other libraries, except those that
# the user's system provides. Writes the paths they were copied from into a file, one on each line.
# cmake -DPROGRAM=FILE -DOBJDUMP=COMMAND -DDESTINATION=FOLDER -DORIGINS=FILE -P packaging/carry.cmake
cmake_minimum_required(VERSION 3.25)

# The libraries that the user's system, the host, provides, by the names before ".so":
set(host
    # the C and C++ runtimes: they belong to the host's loader, and newer ones serve older programs
    ld-linux.* libc libm libresolv libgcc_s "libstdc\\+\\+"
    # X11 and Wayland: they belong to the host's display and drivers
    libX11 libXext libxcb.* libwayland-.*
    # GTK as a whole: the host's themes, input methods and modules are loaded into it
    libgtk-3 libgdk-3 libgdk_pixbuf-2.0 libatk-1.0 libcairo.* libpango.* libharfbuzz libfreetype
    libfontconfig libfribidi libglib-2.0 libgobject-2.0 libgmodule-2.0 libgio-2.0
    # what GTK, its modules or the system itself need under the same name everywhere
    libz libpng16 liblzma libzstd libuuid
    # OpenSSL 3 and Kerberos: on every desktop, and fixes to them come with the system
    libssl libcrypto libgssapi_krb5
    # GnuTLS, which parts of libcurl use that Kestrel does not need, with the libraries that the
    # host's GnuTLS itself uses
    libgnutls libnettle libhogweed libgmp)
list(TRANSFORM host REPLACE "(.+)" "^\\1[.]so")

set(CMAKE_OBJDUMP ${OBJDUMP})
file(GET_RUNTIME_DEPENDENCIES EXECUTABLES ${PROGRAM}
    PRE_EXCLUDE_REGEXES ${host}
    RESOLVED_DEPENDENCIES_VAR libraries)
foreach(library IN LISTS libraries)
    # The loader asks for this name; it becomes a plain file, not a link.
    get_filename_component(name ${library} NAME)
    file(COPY_FILE ${library} ${DESTINATION}/${name})
endforeach()
list(JOIN libraries "\n" lines)
file(WRITE ${ORIGINS} "${lines}\n")
