// The library's error descriptors, each with its message key.
#include <qorc/error.h>

const C_ERROR CerrInternalError("C#Err#Function failure");
const C_ERROR CerrFileCannotCreate("C#Err#Unable to create file");
const C_ERROR CerrNotAnOleStreamFunction("C#Err#Not an OLE stream function");
const C_ERROR CerrFileCannotCreateOleStream("C#Err#Unable to create OLE stream file");
const C_ERROR CerrFileCannotCreateTemporary("C#Err#Unable to create temporary file");
const C_ERROR CerrFileCannotOpen("C#Err#Unable to open file");
const C_ERROR CerrFileCannotRead("C#Err#Unable to read file");
const C_ERROR CerrFileCannotWrite("C#Err#Unable to write file");
const C_ERROR CerrFileCannotSeek("C#Err#Unable to change position in file");
const C_ERROR CerrFileCopyCanceled("C#Err#File copy canceled");
const C_ERROR CerrFileEndReached("C#Err#End of file reached");
const C_ERROR CerrFileIsUnicode("C#Err#File is Unicode");
const C_ERROR CerrFileIsNotUnicode("C#Err#File is not Unicode");
const C_ERROR CerrFileContainsInvalidCode("C#Err#File contains invalid encoding");
const C_ERROR CerrFileNotFound("C#Err#File not found");
const C_ERROR CerrFileLock("C#Err#Unable to lock file");
const C_ERROR CerrFileUnlock("C#Err#Unable to unlock file");
const C_ERROR CerrFileLocked("C#Err#File is locked");
const C_ERROR CerrFileReadOnly("C#Err#File is in read only mode");
const C_ERROR CerrFileNotEnoughSpace("C#Err#Disk full");
const C_ERROR CerrFileCannotCompress("C#Err#Error while compressing");
const C_ERROR CerrFileCannotDecompress("C#Err#Error while decompressing");
const C_ERROR CerrMemoryFull("C#Err#Not enough memory");
const C_ERROR CerrStringNotReal("C#Err#Cannot convert string to real");
const C_ERROR CerrStringNotInt("C#Err#Cannot convert string to integer");
const C_ERROR CerrStringNotFound("C#Err#Not found");
const C_ERROR CerrStringCannotConvertMBCS("C#Err#Cannot convert string to MBCS");
const C_ERROR CerrInvalidPointer("C#Err#Invalid pointer");
const C_ERROR CerrInvalidValue("C#Err#Invalid value");
const C_ERROR CerrValueTooLow("C#Err#Value is too low");
const C_ERROR CerrValueTooHigh("C#Err#Value is too high");
const C_ERROR CerrSerialCannotOpen("C#Err#Cannot open serial line");
const C_ERROR CerrSerialCannotGetState("C#Err#Cannot get serial line state");
const C_ERROR CerrSerialCannotSetState("C#Err#Cannot set serial line state");
const C_ERROR CerrSerialCannotWrite("C#Err#Writing operation on serial line failed");
const C_ERROR CerrSerialCannotRead("C#Err#Reading operation on serial line failed");
