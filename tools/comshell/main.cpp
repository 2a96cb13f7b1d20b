// vmio-com-shell: a scripting host that drives the registered VMIO component exactly as a
// late-binding automation host does, speaking the `vmio shell` line protocol on standard
// input and output. No arguments.
#include <fcntl.h>
#include <io.h>
#include <objbase.h>

#include <cstdio>
#include <iostream>

#include "com_shell.h"

int main() {
  // Lines end in LF, as the protocol's other speakers write them.
  _setmode(_fileno(stdout), _O_BINARY);
  _setmode(_fileno(stdin), _O_BINARY);
  if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {
    std::cerr << "vmio-com-shell: COM could not be initialised\n";
    return 1;
  }
  const int code = vmio::comshell::RunShell(std::cin, std::cout);
  CoUninitialize();
  return code;
}
