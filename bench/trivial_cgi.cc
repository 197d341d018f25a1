// The ceiling of the one-shot CGI figure: a program that writes a captured
// answer to standard output and exits, as a do-nothing entry.cgi would.
//
//   trivial_cgi FILE
#include <fcntl.h>
#include <unistd.h>

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  int fd = open(argv[1], O_RDONLY);
  if (fd < 0) return 1;
  char buffer[65536];
  ssize_t n;
  while ((n = read(fd, buffer, sizeof buffer)) > 0) {
    if (write(1, buffer, static_cast<size_t>(n)) != n) return 1;
  }
  return 0;
}
