#pragma once

#include "pipeline/CopyFileProcessor.h"

namespace quirepad {

// Adds the document to the user's e-book library with its author (config
// "author_name", "Unknown" when absent): through calibre's calibredb when it
// is installed (config "library_path", else calibre's own library), else as
// a file in "Books/<author>/" of the documents folder. The prepared copy is
// made in a new private temporary folder first.
class BookLibraryProcessor : public CopyFileProcessor
{
public:
    // The e-book reader ("B") and the media library ("I") differ only in
    // what the notification says.
    enum class Library { Books, Media };

    explicit BookLibraryProcessor(Library library);

    QString outputDir() override;
    bool copyTempFile(const QString& source, const QString& target) override;

    // The folder used when calibre is not installed:
    // $XDG_DOCUMENTS_DIR (an absolute path) or ~/Documents, then "/Books".
    static QString libraryFolder();
    // The author as one file name: no "/", never "." or "..", never empty.
    static QString authorFolderName(const QString& author);

protected:
    bool isPlainFolderProcessor() const override { return false; }

private:
    bool addWithCalibre(const QString& calibredb, const QString& file, const QString& author);
    bool addToFolder(const QString& file, const QString& author);
    QString successText() const;

    Library m_library;
};

} // namespace quirepad
