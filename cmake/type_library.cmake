# vmio_type_library(NAME IDL): compiles IDL with widl into a type library embedded as TYPELIB
# resource 1, with the header (NAME_h.h) and identifiers (NAME_i.c) that give C++ the same
# interfaces and GUIDs. Sets NAME_TYPELIB_SOURCES (the identifiers and the resource script) and
# NAME_TYPELIB_INCLUDE (the folder of the header) in the caller's scope. Debian's mingw ships no
# system IDL files: Wine's (libwine-dev) are taken, and stdole2.tlb from Wine's folder.
include_guard(GLOBAL)
enable_language(RC)
find_path(VMIO_WINE_IDL_DIR oaidl.idl PATHS /usr/include/wine/wine/windows NO_CMAKE_FIND_ROOT_PATH
          DOC "Folder of the system IDL files (libwine-dev)")
find_path(VMIO_STDOLE2_DIR stdole2.tlb
          PATHS /usr/lib/x86_64-linux-gnu/wine/x86_64-windows /usr/lib/i386-linux-gnu/wine/i386-windows
          NO_CMAKE_FIND_ROOT_PATH DOC "Folder of stdole2.tlb (Wine)")
if(NOT VMIO_WINE_IDL_DIR OR NOT VMIO_STDOLE2_DIR)
  message(FATAL_ERROR "type libraries need Wine's IDL files and stdole2.tlb (libwine-dev, libwine)")
endif()

function(vmio_type_library name idl)
  set(gen ${CMAKE_CURRENT_BINARY_DIR}/gen)
  add_custom_command(
    OUTPUT ${gen}/${name}.tlb ${gen}/${name}_h.h ${gen}/${name}_i.c
    COMMAND ${CMAKE_COMMAND} -E make_directory ${gen}
    COMMAND ${VMIO_WIDL} -I${VMIO_WINE_IDL_DIR} -L${VMIO_STDOLE2_DIR} $<IF:$<EQUAL:${CMAKE_SIZEOF_VOID_P},8>,-m64,-m32>
            -t -T ${gen}/${name}.tlb -h -H ${gen}/${name}_h.h -u -U ${gen}/${name}_i.c ${idl}
    DEPENDS ${idl}
    COMMENT "Compiling the type library ${name}")
  file(WRITE ${gen}/${name}.rc "1 TYPELIB \"${gen}/${name}.tlb\"\n")
  set_source_files_properties(${gen}/${name}.rc PROPERTIES OBJECT_DEPENDS ${gen}/${name}.tlb)
  set_source_files_properties(${gen}/${name}_i.c PROPERTIES LANGUAGE CXX)
  set(${name}_TYPELIB_SOURCES ${gen}/${name}_i.c ${gen}/${name}.rc PARENT_SCOPE)
  set(${name}_TYPELIB_INCLUDE ${gen} PARENT_SCOPE)
endfunction()
