// Checks the files of an ICU resource bundle before ICU opens them.
//
// ICU maps such a file into memory and trusts the offsets in it: a file that was cut short makes it
// read beyond the end of the mapping, which ends the process.
#pragma once

// True when no file "*.res" of `directory` that ICU may open for `locale` is damaged as far as its
// size, its header and its indexes show. These are the files of the locale's language, of the
// default locale's, "root" and "pool"; aliases for other languages are not used. A directory or a
// file that cannot be opened counts as sound, because ICU cannot open it either. Any thread.
[[nodiscard]] bool HTResFile_allSound(const char *directory, const char *locale);
