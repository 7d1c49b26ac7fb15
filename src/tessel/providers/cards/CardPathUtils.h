// Paths inside camera cards, and the walk that offers the folders beside a card to a visitor
// (or, for a card that is a volume of its own, the other mounted volumes), through which a
// provider finds the other pieces of a shot recorded across several cards.
#pragma once

#include <string>
#include <string_view>

#include <tessel/foundation/Directory.h>
#include <tessel/platform/Export.h>
#include <tessel/platform/Volumes.h>

namespace Tessel::CardPathUtils {

// Joins components with the native separator ('\' on Windows, '/' on POSIX). A separator is
// added only where neither side has one, and when the text so far ends with one and the next
// component starts with one, one of them is dropped: "E:\" + "CONTENTS" + "CLIP" gives
// "E:\CONTENTS\CLIP". Nothing else is normalised (no case change, no ".." handling).
TESSEL_API std::u16string JoinPath(std::u16string_view first, std::u16string_view second);
TESSEL_API std::u16string JoinPath(std::u16string_view first, std::u16string_view second,
                                   std::u16string_view third);
TESSEL_API std::u16string JoinPath(std::u16string_view first, std::u16string_view second,
                                   std::u16string_view third, std::u16string_view fourth);

}  // namespace Tessel::CardPathUtils

namespace Tessel {

// Offered one folder at a time by VisitSiblingDirectories. Visit answers true to go on with
// the next folder, false to stop the walk. Concrete visitors point at their caller's results.
class TESSEL_API DirVisitor {
public:
    virtual ~DirVisitor();
    virtual bool Visit(const Directory& folder) = 0;
};

}  // namespace Tessel

namespace Tessel::CardPathUtils {

// Offers VISITOR each folder beside FOLDERPATH (UTF-8), stopping at the first Visit that
// answers false.
// - An ordinary folder: the other immediate sub-folders of its parent, in walk order (NTFS
//   order), skipping the folder itself and folders gone since the parent was read.
// - A drive root (a card mounted as a volume of its own): the roots of the other mounted
//   drives, in ascending order, skipping drives whose volume is not mounted (an empty card
//   reader slot) and roots that do not exist. On Windows these are the drive letters of the
//   drive mask, given in the long form "\\?\F:\". On POSIX a folder counts as a drive root
//   when it has no parent ("/") or is a mount point in the mount table (FILES); the other
//   volumes are the local mounted file systems of Platform::ListVolumes (network mounts are
//   not visited: a dead server must not hang the walk).
TESSEL_API void VisitSiblingDirectories(const std::string& folderPath, DirVisitor& visitor,
                                        const Platform::MountTableFiles& files = {});

}  // namespace Tessel::CardPathUtils
