// EmulatedCKDfile: one emulated count-key-data volume held in one host file.
//
// The file is a 512-byte little-endian header followed by one fixed-size slot
// per track (see ckdfile/volume_format.h for the byte layout). The object
// works on one track at a time: readTrack() loads a slot into `trackBuffer`,
// the positioning operations hand out references (pointers into that buffer)
// and the writers change it; the changed image is written back whole by
// writeTrack(), by the next readTrack() or by close().
//
// References into `trackBuffer` die at the next operation that reads another
// track (readTrack, locateNext with multitrack).
//
// Thread safety: none. One thread per object; the volume file is not locked
// against other processes or other objects.
#ifndef CKDVOL_CKDFILE_EMULATED_CKD_FILE_H_
#define CKDVOL_CKDFILE_EMULATED_CKD_FILE_H_

#include <cstdint>

#include "common/export.h"

class CKDVOL_EXPORT EmulatedCKDfile {
 public:
  // Device-type code; its text form is "%04X", optionally "-" and a model.
  enum CKDtype : uint32_t {
    D100 = 0xD100,
    D130 = 0xD130,
    D160 = 0xD160,
    D200 = 0xD200,
    D300 = 0xD300,
    D400 = 0xD400,
    D430 = 0xD430,
    D460 = 0xD460,
    D500 = 0xD500,
    D600 = 0xD600,
    D700 = 0xD700
  };

  // Kinds of place a reference designates (0: none of them).
  enum CKDorient { ORIENT_HA = 1, ORIENT_COUNT = 2, ORIENT_EOT = 5, ORIENT_END = 6 };

  // One row of the constant device table.
  struct DeviceInfo {
    uint32_t type;           // CKDtype code; 0 closes the table
    unsigned char fileCode;  // header byte 16 for this type
    uint32_t cylinders;      // default number of cylinders
    uint16_t heads;          // heads per cylinder
    uint16_t slotUnits;      // slot size in 512-byte units
    uint16_t trackCapacity;  // largest data length of one record on a track
  };
  // Eleven rows in the fixed order D100 ... D700, closed by a row of type 0.
  static const DeviceInfo deviceTable[12];
  // The row of `type`, or null (0 included).
  static const DeviceInfo* findDevice(uint32_t type);
  // The row whose fileCode is `fileCode`, or null.
  static const DeviceInfo* findDeviceByFileCode(unsigned char fileCode);

  // Progress callback of initialize(): (context, device type, cell, cylinder,
  // head) of the next track to be formatted.
  typedef void (*ProgressCallback)(void* context, CKDtype type, unsigned short cell,
                                   unsigned int cyl, unsigned int head);

  // ---- result codes, named once -------------------------------------------
  enum HeaderResult { kHeaderOk = 0, kHeaderShort = -1, kHeaderSeek = -2, kHeaderBadMagic = -3 };
  enum CreateResult {
    kCreateOk = 0,
    kCreateIo = -1,            // file not created or header not written (removed again)
    kCreateBadType = -2,       // unknown device type
    kCreateZeroCylinders = -3, // cylinder count 0
    kCreateTooLarge = -4       // above 65520 cylinders for a type other than D600
  };
  enum OpenResult {
    kOpenOk = 0,
    kOpenReadOnlyPending = 1,     // read-only; the header asks for an update not written
    kOpenCannotOpen = -1,         // errno from the system
    kOpenBadHeader = -2,          // "Unable to read file"
    kOpenLevel2 = -3,             // "Invalid file header"
    kOpenBadDevice = -4,          // "Invalid CKD device type in the file"
    kOpenBadTrackSize = -5,       // "Inconsistant device track size"
    kOpenCorruptVersioned = -6,   // "Corrupted header on versioned file"
    kOpenBadSize = -7,            // "Unable to determine file size"
    kOpenNotCylinders = -8,       // "File size is not a track size multiple"
    kOpenHeaderWrite = -9,        // "I/O error updating file header"
    kOpenBusy = -10               // the object already holds a volume or a type
  };
  enum TrackResult {
    kTrackOk = 0,
    kTrackShort = -1,      // fewer than trackSlotSize bytes transferred
    kTrackSeek = -2,       // positioning failed
    kTrackWriteBack = -3,  // readTrack: write-back of the previous track failed
    kTrackVerify = -4,     // verification failed
    kTrackRange = -5,      // readTrack: address out of range, or no file
    kTrackNoCopy = -6      // writeTrack: the saved copy for versioning could not be made
  };
  enum WriteResult {
    kWriteOk = 0,
    kWriteBadRef = -1,     // ref before trackBuffer or at/after dataLimit
    kWriteDataEnd = -2,    // writeD: data area ends at or after dataLimit
    kWriteNoRoom = -3,     // writeCKD: the record would end after dataLimit
    kWriteHaMismatch = -4, // writeCKD at the home address: cylinder or head differ
    kWriteNotR0 = -5       // writeCKD at the home address: record is not 0
  };
  enum FormatResult { kFormatOk = 0, kFormatIo = -1, kFormatNoFile = -2, kFormatRange = -3 };
  enum InitResult {
    kInitOk = 0,
    kInitWrite = -1,       // a cylinder write was short or failed
    kInitNoOffset = -3,    // first slot offset not computable
    kInitSeek = -4,        // positioning at the first slot failed
    kInitReadHeader = -5,  // reading the header back failed
    kInitWriteHeader = -6, // writing the stamped header failed
    kInitLoadTrack = -7    // loading track (0, 0, 0) failed
  };

  // ---- data members, in this order ----------------------------------------
  unsigned char* trackBuffer;      // current track image, trackSlotSize bytes; owned
  unsigned long long lastReadOffset;  // offset given to the last readRawTrack
  unsigned int trackSlotSize;      // bytes per track slot
  unsigned int trackCapacity;      // table column; not read by this class
  unsigned int currentCyl;         // cylinder of the current track; all ones = none
  unsigned short currentHead;      // head of the current track; 0xFFFF = none
  unsigned short currentCell;      // cell of the current track; 0xFFFF = none
  int fileDescriptor;              // host descriptor; negative = no file
  unsigned char trackDirty;        // trackBuffer changed since it was read
  CKDtype deviceType;              // 0 = idle
  int activeVersion;               // versioning state in effect (-1 idle, 0 off)
  int latestVersion;               // latest version enabled
  unsigned int cylinders;          // cylinders of the volume
  unsigned int headerCylinders;    // header's count when open() corrected it
  unsigned short tracksPerCylinder;  // heads per cylinder
  unsigned short cellCount;        // 10 for D200, else 1
  unsigned short model;            // derived by setModel(); 0 = none
  unsigned short verifyCode;       // reason code of the last verifyTrack()
  unsigned char formatLevel;       // header byte 17
  unsigned char extendedVolume;    // set with largeCylinders
  unsigned char cylindersRounded;  // create() rounded the cylinder count up
  unsigned char largeCylinders;    // 28-bit cylinder numbers in CC/HH
  unsigned char readOnly;          // opened read-only
  unsigned char verifyTracks;      // check every track read or written (caller sets it)
  unsigned char cylindersCorrected;  // open() took the count from the file size
  char errorText[128];             // text of the last open() failure

  // ---- device types and geometry --------------------------------------------
  EmulatedCKDfile();
  ~EmulatedCKDfile();
  EmulatedCKDfile(const EmulatedCKDfile&) = delete;
  EmulatedCKDfile& operator=(const EmulatedCKDfile&) = delete;

  // Releases the buffer when `freeBuffer` and resets every member to idle
  // (latestVersion, trackCapacity and headerCylinders keep their values).
  void init(bool freeBuffer);
  // Parses "D600", "D600-3", "D600-A"; false on any other text.
  static bool parseType(const char* text, CKDtype& type, int& model);
  // Gives an idle object a type; on a typed object returns deviceType == type.
  bool setType(CKDtype type);
  void setCylinders(unsigned int count);
  void setModel();

  // ---- header, create, open, close -----------------------------------------
  int readHeader(void* header, bool check);         // HeaderResult
  int writeHeader(const void* header, bool check);  // HeaderResult
  int create(const char* path, CKDtype type, int cylinders);  // CreateResult
  int open(const char* path, bool readOnly);        // OpenResult; text in errorText
  // Writes back a changed track (message on stderr if that fails), closes the
  // descriptor and returns to idle. 0, or -1 from closing the descriptor.
  int close();

  // ---- track layout and references ------------------------------------------
  long long getOffset(unsigned int cyl, unsigned short head, unsigned short cell, bool check) const;
  long long getMaxOffset() const;
  bool increment(unsigned short& cell, unsigned int& cyl, unsigned short& head);
  void getHA(const unsigned char*& p, unsigned char& flag, unsigned int& cyl, unsigned int& head) const;
  void getCount(const unsigned char*& p, unsigned int& cyl, unsigned int& head, unsigned short& record,
                unsigned short& keyLength, unsigned short& dataLength) const;
  void putHA(unsigned char*& p, unsigned char flag, unsigned int cyl, unsigned short head);
  void putCount(unsigned char*& p, int cyl, unsigned short head, unsigned char record,
                unsigned char keyLength, unsigned short dataLength);
  int getRefCC(const void* ref) const;
  int getRefHH(const void* ref) const;
  int getRefR(const void* ref) const;
  int getRefKL(const void* ref) const;
  int getRefDL(const void* ref) const;
  const unsigned char* getRefKey(const void* ref) const;
  const unsigned char* getRefData(const void* ref) const;
  bool getRefCount(const void* ref, int& cyl, int& head, int& record, int& keyLength,
                   int& dataLength) const;
  int getRefType(const void* ref) const;  // CKDorient value or 0

  // ---- track I/O ------------------------------------------------------------
  int readRawTrack(unsigned long long offset, unsigned char* buffer);         // TrackResult
  int writeRawTrack(unsigned long long offset, const unsigned char* buffer);  // TrackResult
  int readTrack(unsigned int cyl, unsigned short head, unsigned short cell);  // TrackResult
  int writeTrack();                                                          // TrackResult

  // ---- positioning ----------------------------------------------------------
  const void* locate(CKDorient orient, unsigned int cyl, unsigned short head, unsigned char record);
  const void* locateNext(const void* ref, bool multitrack);
  const void* searchKey(const void* ref, const unsigned char* key, int keyLength, bool acceptLower);
  const void* searchRecord(const void* ref, unsigned int cyl, unsigned short head, unsigned char record);

  // ---- writing and formatting -------------------------------------------------
  int writeCKD(const void* ref, unsigned int cyl, unsigned short head, unsigned char record,
               unsigned char keyLength, unsigned short dataLength, const void* data);  // WriteResult
  int writeD(const void* ref, const void* data);                                       // WriteResult
  int formatTrack(unsigned int cyl, unsigned short head, unsigned short cell);          // FormatResult

  // ---- initialisation -------------------------------------------------------
  int initialize(ProgressCallback progress, void* progressContext, bool fullFormat);  // InitResult
  void format_labels(unsigned char*& position);
  void format_vtoc(unsigned char*& position);

  // ---- versioning -----------------------------------------------------------
  int enableVersion();
  int disableVersion();
  int clearVersionInHeader();
  int clearTrackVersion();
  int queryVersion(int& version, int& savedCopies);
  long long versionTrack(unsigned long long slotOffset);  // 0, copy offset, or -1
  int doVersion(int version, int operation);  // operation 1 commit, -1 rollback, 0 verify
  int commitVersion(int version);
  int rollbackVersion(int version);
  int verifyVersion(int version);

  // ---- verification ---------------------------------------------------------
  bool verifyTrack(bool repair);
};

#endif  // CKDVOL_CKDFILE_EMULATED_CKD_FILE_H_
