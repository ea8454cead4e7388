// Saves an album to a file and loads it again: the program of docs/guide/saving.md.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "fxds/fxds.h"

class Item : public fxXDRObj {
    FX_TRANSCRIBABLE(Item)

    fxStr title;
};

class Artist : public Item {
    FX_TRANSCRIBABLE(Artist)

    int born = 0;
};

class Track : public Item {
    FX_TRANSCRIBABLE(Track)

    Track() = default;
    Track(const Track&) = delete;
    Track& operator=(const Track&) = delete;
    ~Track() override;
    void xdrSuccess(fxTranscriber& t) override;

    double seconds = 0;
    char* note = nullptr;    // ours, of malloc(); may be null
    float* peaks = nullptr;  // likewise
    unsigned int peakCount = 0;
    Artist* artist = nullptr;  // shared, counted; may be null
    long plays = 0;
};

class Album : public Item {
    FX_TRANSCRIBABLE(Album)

    Album() = default;
    Album(const Album&) = delete;
    Album& operator=(const Album&) = delete;
    ~Album() override;
    void xdrSuccess(fxTranscriber& t) override;
    void add(Track* track);

    fxIntArray ratings;
    std::vector<Track*> tracks;  // shared, counted
};

FX_TRANSCRIBABLE_TYPE(Item, "Item", 1);
FX_TRANSCRIBABLE_TYPE(Artist, "Artist", 1, Item);
FX_TRANSCRIBABLE_TYPE(Track, "Track", 1, Item);
FX_TRANSCRIBABLE_TYPE(Album, "Album", 1, Item);

fxBool Item::xdr(fxTranscriber& t) { return fxXdr(t, title); }

fxBool Artist::xdr(fxTranscriber& t) { return fxXdrBase<Item>(t, this) && fxXdr(t, born); }

fxBool Album::xdr(fxTranscriber& t) {
    return fxXdrBase<Item>(t, this) && fxXdr(t, ratings) && fxXdrObjects(t, tracks);
}

fxBool Track::xdr(fxTranscriber& t) {
    int edition = 2;  // 1: the first; 2: with plays
    if (!fxXdr(t, edition) || edition < 1 || edition > 2) return false;
    if (!fxXdrBase<Item>(t, this) || !fxXdr(t, seconds)) return false;
    if (!fxXdrString(t, note) || !fxXdrBlock(t, peaks, peakCount)) return false;
    if (!fxXdrObject(t, artist)) return false;
    return edition < 2 || fxXdr(t, plays);
}

void Track::xdrSuccess(fxTranscriber& t) {
    if (t.isReading() && artist != nullptr) artist->take();
}

Track::~Track() {
    std::free(note);
    std::free(peaks);
    if (artist != nullptr) artist->release();
}

void Album::xdrSuccess(fxTranscriber& t) {
    if (!t.isReading()) return;
    for (Track* track : tracks) {
        if (track != nullptr) track->take();
    }
}

Album::~Album() {
    for (Track* track : tracks) {
        if (track != nullptr) track->release();
    }
}

void Album::add(Track* track) {
    tracks.push_back(track);
    track->take();
}

// False with the reason in errno; the file is then as it was before.
bool save(Album& album, const char* path) {
    const fxStr unfinished = path | fxStr(".new");
    std::remove(unfinished);  // an existing file is not truncated: its tail would stay
    errno = 0;
    fxStdioStream* const stream = new fxStdioStream(unfinished, fxStream::fxStreamWrite, 0666);
    stream->take();  // so that it outlives the writer
    bool isDone = false;
    if (!stream->hasError()) {
        const std::unique_ptr<fxTranscriber> writer(fxTranscriber::getWriter(stream));
        isDone = writer != nullptr && fxWriteObject(*writer, &album);
    }
    isDone = stream->close() && isDone;  // a full disk shows here at the latest
    isDone = isDone && std::rename(unfinished, path) == 0;
    const int error = errno != 0 ? errno : EIO;
    stream->release();
    if (!isDone) std::remove(unfinished);
    errno = error;
    return isDone;
}

// Null when there is no whole album in the file. Ends the program when the file
// is damaged in a way that no writer and no accident of the disk explains.
Album* load(const char* path) {
    fxStdioStream* const stream = new fxStdioStream(path, fxStream::fxStreamRead, 0);
    stream->take();
    Album* album = nullptr;
    if (!stream->hasError()) {
        const std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(stream));
        if (reader != nullptr) album = fxReadObject<Album>(*reader);
    }
    stream->release();
    return album;
}

// Whether load() will succeed: tried in a process of its own, whose end is no harm.
bool canBeLoaded(const char* path) {
    std::fflush(nullptr);  // or the child prints what still waits once more
    const pid_t child = fork();
    if (child == 0) {
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
        _exit(load(path) != nullptr ? 0 : 1);
    }
    int status = -1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status == 0;
}

Track* makeTrack(const char* title, double seconds, Artist* artist) {
    Track* const track = new Track;
    track->title = title;
    track->seconds = seconds;
    track->artist = artist;
    artist->take();
    return track;
}

Album* makeAlbum() {
    Artist* const artist = new Artist;
    artist->title = "Ada";
    artist->born = 1815;
    Album* const album = new Album;
    album->title = "Engines";
    album->ratings.append(4);
    album->ratings.append(5);
    album->add(makeTrack("Cards", 61.5, artist));
    album->add(makeTrack("Wheels", 183, artist));
    Track& second = *album->tracks[1];
    second.note = strdup("live");
    second.peakCount = 3;
    second.peaks = static_cast<float*>(std::calloc(second.peakCount, sizeof(float)));
    second.plays = 7;
    return album;
}

void print(const Album& album) {
    std::printf("%s, rated %u times\n", static_cast<const char*>(album.title),
                album.ratings.length());
    for (const Track* track : album.tracks) {
        if (track == nullptr) continue;
        std::printf("  %s: %.1f s, %u peaks, %ld plays", static_cast<const char*>(track->title),
                    track->seconds, track->peakCount, track->plays);
        if (track->note != nullptr) std::printf(" (%s)", track->note);
        if (track->artist != nullptr) {
            std::printf(", by %s", static_cast<const char*>(track->artist->title));
        }
        std::printf("\n");
    }
}

int saveCommand(const char* path) {
    Album* const album = makeAlbum();
    album->take();
    const bool isSaved = save(*album, path);
    const int error = errno;
    album->release();
    if (isSaved) return 0;
    std::fprintf(stderr, "cannot save %s: %s\n", path, std::strerror(error));
    return 1;
}

int loadCommand(const char* path) {
    Album* const album = canBeLoaded(path) ? load(path) : nullptr;
    if (album == nullptr) {
        std::fprintf(stderr, "%s is no album, or damaged\n", path);
        return 1;
    }
    album->take();  // what was read has no holder yet
    print(*album);
    album->release();
    return 0;
}

int main(int argc, char** argv) {
    fxInitializeToolkit();
    int status = 2;
    if (argc == 3 && std::strcmp(argv[1], "save") == 0) {
        status = saveCommand(argv[2]);
    } else if (argc == 3 && std::strcmp(argv[1], "load") == 0) {
        status = loadCommand(argv[2]);
    } else {
        std::fprintf(stderr, "usage: saving save|load FILE\n");
    }
    fxCleanupGlobalOrderings();
    return status;
}
