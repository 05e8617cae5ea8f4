#pragma once

namespace tolven {

// The numbers of failures: the exit codes that scripts know, and what stands behind "error" in messages.
// Never renumber. Two failures may share one; the older format has numbers of its own
// (oldarchive/old_messages.h).
enum ErrorNumber : int {
  kErrorUnsupported = 1,
  kErrorMemory = 2,
  kErrorCreateDir = 3,
  kErrorWrite = 4,  // also of a run that lost a line of its output
  kErrorRead = 5,
  kErrorOpen = 6,
  kErrorCompress = 9,
  kErrorDecompress = 11,
  kErrorChecksum = 12,
  kErrorSetMode = 13,
  kErrorSetDate = 14,
  kErrorWorkingDirectory = 17,
  kErrorOptionTwice = 18,
  kErrorOptionWithoutArgument = 19,
  kErrorOption = 20,  // unknown, or one too many
  kErrorNoCommand = 21,
  kErrorPWithC = 22,
  kErrorCWithoutCreate = 23,
  kErrorTWithoutWriting = 24,
  kErrorXWithoutInput = 25,
  kErrorRWithoutReading = 26,
  kErrorPermission = 27,
  kErrorTemporaryFile = 28,
  kErrorForce = 28,  // what stands in the way cannot be deleted
  kErrorNoNames = 29,
  kErrorDiskSpace = 30,
  kErrorSWithoutList = 31,
  kErrorUnexpected = 32,
  kErrorOutOfRange = 33,
  kErrorLength = 34,
  kErrorReadLink = 35,
  kErrorLink = 36,
  kErrorRenameFile = 43,
  kErrorInaccessible = 44,  // a create or append that met files it could not read
  kErrorBrokenLink = 45,
  kErrorLowerWithoutExtract = 46,
  kErrorConversion = 47,
  kErrorAttributes = 48,
  kErrorPrivilege = 49,
  kErrorHandle = 50,
  kErrorGetPosition = 51,
  kErrorSetPosition = 52,
  kErrorSigned = 53,
  kErrorManifest = 54,
  kErrorManifestDiffers = 55,  // also of a manifest file that does not verify
  kErrorCryptoLibrary = 56,
  kErrorDigest = 57,
  kErrorFileNotSigned = 58,
  kErrorNotSigned = 59,
  kErrorSignature = 60,
  kErrorRevocation = 61,
  kErrorOther = 100,      // what has no number of its own
  kErrorSystemBase = 100  // and the system's number
};

}  // namespace tolven
