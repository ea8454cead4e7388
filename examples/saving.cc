// Saves an album to a file and loads it again: the program of docs/guide/saving.md.
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

    double seconds = 0;
    char* note = nullptr;    // ours, of malloc(); may be null
    float* peaks = nullptr;  // likewise
    unsigned int peakCount = 0;
    fxRef<Artist> artist;  // shared; may be null
    long plays = 0;
};

class Album : public Item {
    FX_TRANSCRIBABLE(Album)

    fxIntArray ratings;
    std::vector<fxRef<Track>> tracks;  // shared; some may be null
};

FX_TRANSCRIBABLE_TYPE(Item, "Item", 1);
FX_TRANSCRIBABLE_TYPE(Artist, "Artist", 1, Item);
FX_TRANSCRIBABLE_TYPE(Track, "Track", 1, Item);
FX_TRANSCRIBABLE_TYPE(Album, "Album", 1, Item);

fxBool Item::xdr(fxTranscriber& t) {
    int edition = 1;
    return fxXdrEdition(t, this, edition) && fxXdr(t, title);
}

fxBool Artist::xdr(fxTranscriber& t) {
    int edition = 1;
    return fxXdrEdition(t, this, edition) && fxXdrBase<Item>(t, this) && fxXdr(t, born);
}

fxBool Album::xdr(fxTranscriber& t) {
    int edition = 1;
    return fxXdrEdition(t, this, edition) && fxXdrBase<Item>(t, this) && fxXdr(t, ratings) &&
           fxXdr(t, tracks);
}

fxBool Track::xdr(fxTranscriber& t) {
    int edition = 2;  // 1: the first; 2: with plays
    if (!fxXdrEdition(t, this, edition) || !fxXdrBase<Item>(t, this)) return false;
    if (!fxXdr(t, seconds)) return false;
    if (!fxXdrString(t, note) || !fxXdrBlock(t, peaks, peakCount)) return false;
    return fxXdr(t, artist) && (edition < 2 || fxXdr(t, plays));
}

Track::~Track() {
    std::free(note);
    std::free(peaks);
}

fxRef<Track> makeTrack(const char* title, double seconds, const fxRef<Artist>& artist) {
    fxRef<Track> track = fxMake<Track>();
    track->title = title;
    track->seconds = seconds;
    track->artist = artist;
    return track;
}

fxRef<Album> makeAlbum() {
    const fxRef<Artist> artist = fxMake<Artist>();
    artist->title = "Ada";
    artist->born = 1815;
    fxRef<Album> album = fxMake<Album>();
    album->title = "Engines";
    album->ratings.append(4);
    album->ratings.append(5);
    album->tracks.push_back(makeTrack("Cards", 61.5, artist));
    album->tracks.push_back(makeTrack("Wheels", 183, artist));
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
    for (const fxRef<Track>& track : album.tracks) {
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
    const fxStreamFault fault = fxSave(path, makeAlbum());
    if (!fault) return 0;
    std::fprintf(stderr, "saving: %s\n", fault.text().c_str());
    return 1;
}

int loadCommand(const char* path) {
    const fxLoaded<Album> album = fxLoad<Album>(path);
    if (!album) {
        std::fprintf(stderr, "saving: %s\n", album.fault().text().c_str());
        return 1;
    }
    print(*album);
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
