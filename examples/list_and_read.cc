// Example program built against an installed libckdvol: lists a volume's
// VTOC and, given a data set and a member, prints the member's records as
// text.
//
//   list_and_read VOLUME                 the VTOC listing
//   list_and_read VOLUME DSN MEMBER      the member's records
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <ckdvol.h>

int main(int argc, char** argv) {
  if (argc != 2 && argc != 4) {
    std::fprintf(stderr, "usage: %s VOLUME [DSN MEMBER]\n", argv[0]);
    return 2;
  }
  DskVolume volume;
  int rc = volume.open(argv[1], true);
  if (rc != 0) {
    std::fprintf(stderr, "%s: cannot open volume (result %d, errno %d)\n", argv[1], rc, errno);
    return 1;
  }
  if (argc == 2) {
    int length = volume.printVTOC(stdout);
    volume.close();
    return length < 0 ? 1 : 0;
  }
  BasicPartionedAccessMethod pds(volume);
  if ((rc = pds.openDataset(argv[2])) != 0 || (rc = pds.readMember(argv[3])) != 0) {
    std::fprintf(stderr, "%s: %s(%s): result %d, %s\n", argv[1], argv[2], argv[3], rc,
                 std::strerror(errno));
    volume.close();
    return 1;
  }
  for (int i = 0; i < pds.records.count; ++i) {
    const RexxString* record = pds.records[i];
    if (record == nullptr) continue;
    std::string line(static_cast<size_t>(record->length()), ' ');
    Xlater.copyE2A(&line[0], record->text(), static_cast<unsigned>(record->length()));
    line.erase(line.find_last_not_of(' ') + 1);
    std::printf("%s\n", line.c_str());
  }
  volume.close();
  return 0;
}
