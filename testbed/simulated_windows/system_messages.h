// The English system messages of Windows 10 and 11, without the line end that each of them has.
// Operations on files, waits and conversions fail with these codes. For any other code
// FormatMessageA answers that the system has no text.

#pragma once

#include <cstdint>
#include <string_view>

namespace tolvarine::updater::simulated {

struct MessageText {
  std::uint32_t code;
  std::string_view text;
};

inline constexpr MessageText kSystemMessages[] = {
    {0, "The operation completed successfully."},
    {1, "Incorrect function."},
    {2, "The system cannot find the file specified."},
    {3, "The system cannot find the path specified."},
    {4, "The system cannot open the file."},
    {5, "Access is denied."},
    {6, "The handle is invalid."},
    {8, "Not enough memory resources are available to process this command."},
    {14, "Not enough memory resources are available to complete this operation."},
    {15, "The system cannot find the drive specified."},
    {17, "The system cannot move the file to a different disk drive."},
    {18, "There are no more files."},
    {19, "The media is write protected."},
    {21, "The device is not ready."},
    {23, "Data error (cyclic redundancy check)."},
    {29, "The system cannot write to the specified device."},
    {30, "The system cannot read from the specified device."},
    {31, "A device attached to the system is not functioning."},
    {32, "The process cannot access the file because it is being used by another process."},
    {33,
     "The process cannot access the file because another process has locked a portion of the "
     "file."},
    {38, "Reached the end of the file."},
    {39, "The disk is full."},
    {50, "The request is not supported."},
    {53, "The network path was not found."},
    {59, "An unexpected network error occurred."},
    {64, "The specified network name is no longer available."},
    {65, "Network access is denied."},
    {67, "The network name cannot be found."},
    {80, "The file exists."},
    {82, "The directory or file cannot be created."},
    {87, "The parameter is incorrect."},
    {110, "The system cannot open the device or file specified."},
    {111, "The file name is too long."},
    {112, "There is not enough space on the disk."},
    {121, "The semaphore timeout period has expired."},
    {122, "The data area passed to a system call is too small."},
    {123, "The filename, directory name, or volume label syntax is incorrect."},
    {145, "The directory is not empty."},
    {161, "The specified path is invalid."},
    {183, "Cannot create a file when that file already exists."},
    {206, "The filename or extension is too long."},
    {225,
     "Operation did not complete successfully because the file contains a virus or potentially "
     "unwanted software."},
    {267, "The directory name is invalid."},
    {288, "Attempt to release mutex not owned by caller."},
    {303, "The file cannot be opened because it is in the process of being deleted."},
    {317,
     "The system cannot find message text for message number 0x%1 in the message file for %2."},
    {995,
     "The I/O operation has been aborted because of either a thread exit or an application "
     "request."},
    {997, "Overlapped I/O operation is in progress."},
    {1004, "Invalid flags."},
    {1006,
     "The volume for a file has been externally altered so that the opened file is no longer "
     "valid."},
    {1113, "No mapping for the Unicode character exists in the target multi-byte code page."},
    {1117, "The request could not be performed because of an I/O device error."},
    {1142, "An attempt was made to create more links on a file than the file system supports."},
    {1167, "The device is not connected."},
    {1168, "Element not found."},
    {1223, "The operation was canceled by the user."},
    {1224,
     "The requested operation cannot be performed on a file with a user-mapped section open."},
    {1314, "A required privilege is not held by the client."},
    {1392, "The file or directory is corrupted and unreadable."},
    {1393, "The disk structure is corrupted and unreadable."},
    {1450, "Insufficient system resources exist to complete the requested service."},
    {1455, "The paging file is too small for this operation to complete."},
    {1460, "This operation returned because the timeout period expired."},
    {1815, "The specified resource language ID cannot be found in the image file."},
    {1816, "Not enough quota is available to process this command."},
    {1920, "The file cannot be accessed by the system."},
    {1921, "The name of the file cannot be resolved by the system."},
    {4390, "The file or directory is not a reparse point."},
    {4392, "The data present in the reparse point buffer is invalid."},
    {4393, "The tag present in the reparse point buffer is invalid."},
};

}  // namespace tolvarine::updater::simulated
