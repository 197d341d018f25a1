#include <iostream>

#include "plythctl.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  return plyth_services::RunPlythctl(args, std::cin, std::cout, std::cerr);
}
