// Files and directories: checks of paths, removal, and gzip compression in memory and into
// archives.
//
// All paths are byte strings; a relative one starts at the process's working directory.

#ifndef LUM_FILE_SYS_H
#define LUM_FILE_SYS_H

#include <string>

// Thread safety: every operation may be called from any thread at any time.
class __attribute__((visibility("default"))) LumDir {
 public:
  // Tells whether the first `length` bytes of `path` can name a file: true when `path` is not null,
  // 0 < length < PATH_MAX, none of those bytes is zero, the directory that they name the file in
  // exists, and they do not name a directory. The file itself need not exist, and true says nothing
  // about permissions: a directory that cannot be looked into counts as missing, a file that cannot
  // be looked at as a file. Symbolic links are followed.
  static bool LumRealPath(const char* path, int length);
};

// Thread safety: every operation may be called from any thread at any time.
class __attribute__((visibility("default"))) LumFile {
 public:
  // Removes the file `path`; of a symbolic link, the link. Returns 0, or -1 with errno set and
  // nothing removed: the file does not exist, is a directory, or `path` holds a zero byte (EINVAL).
  static int RemoveFile(const std::string& path);
};

// Compression. The bytes that come out may differ between releases; what they unpack to does not.
//
// Thread safety: every operation may be called from any thread at any time; two calls that write
// the same archive at once each leave a whole one, the later replacing the earlier.
//
// The archives are tar files in one gzip member, which every tar and gunzip reads. They hold
// regular files, directories and symbolic links with permissions, numeric owner and modification
// time in whole seconds; names are stored byte for byte. Sockets, pipes and devices are passed
// over. A hard link is stored as a file of its own, a sparse file with its holes filled.
//
// An archive has no name until it is complete (open(2), O_TMPFILE), and replaces an older one at
// once or not at all. A failure leaves nothing behind and an older archive as it was; so does a
// process that is killed, unless it was just about to replace one: between two system calls the
// complete archive then has a temporary name beside its final one, ".lum-archive-" and sixteen
// hexadecimal digits. Where the file system knows no such files, or /proc is not mounted, it has
// that name from the start. Only its owner may read it and write to it, whatever the umask. Memory
// use does not depend on the size of the files.
//
// The paths given are followed when they are symbolic links; links found inside a directory are
// stored as links. Files may change while they are packed: what has vanished since its directory
// was listed is passed over, a file that shrinks is filled up with zero bytes to the size that it
// had, one that grows is packed to that size. Each is worth a line of level 2 in the log. A path
// that was given and is missing is a failure.
class __attribute__((visibility("default"))) LumCompressAndDeCompress {
 public:
  // Compresses `sourceLength` bytes at `source` into one gzip member (RFC 1952) at `destination`,
  // which has room for `destinationLength` bytes and must not overlap the source. Returns the
  // number of bytes written. Returns -1, with the destination's content undefined, when the member
  // does not fit, a pointer is null, a length is negative, or memory runs out. An empty source
  // gives a member of 20 bytes; none is longer than its source by more than 18 bytes and 5 for
  // every started 65,535.
  //
  // Each thread that calls this keeps 80 KiB until it ends.
  static int GzipCompress(const char* source, int sourceLength, char* destination,
                          int destinationLength);

  // Packs the regular file `filePath` under its base name into `filePath` + ".tar.gz". Returns 0,
  // or -1 with errno set.
  static int CompressFile(const char* filePath);

  // Packs the directory `dirPath`, with all below it, under its base name into
  // `dirPath` + ".tar.gz". With a slash at its end ("DIR/") that is the file ".tar.gz" inside the
  // directory. Wherever the archive lies, neither it, an older one of its name nor its temporary
  // file is packed. Members stand in the order of their bytes. Returns 0, or -1 with errno set.
  static int CompressFilePath(const char* dirPath);

  // Packs the paths that `fileGroup` lists, one a line ('\n'), into `archiveBase` + ".tar.gz", in
  // that order and each under its base name. Empty lines do not count; a directory is packed with
  // all below it. Returns 0, or -1 with errno set: a list without paths or an empty base is refused
  // (EINVAL), and so are two paths with one base name (EEXIST).
  static int CompressFileGroup(const char* fileGroup, const char* archiveBase);
};

#endif  // LUM_FILE_SYS_H
