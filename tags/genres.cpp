// The genre name tables: genre numbers of ID3v1 (and of "(n)" references in ID3v2
// genre frames) to names. GenreNames is shared by the ID3v1 and ID3v2 readers and the
// file-information dialog's genre list (entries 0 to 148); ApeGenreNames is the APE
// reader's own wording of entries 0 to 147. They only map numbers to names; nothing
// matches text against them.
#include "genres.h"

namespace kxmp3 {

// Entries 0 to 147: the common ID3v1 genre list in this product's wording, odd
// spellings ("Euro-tecno", "Juzz+Funk", "Bedob", ...) kept on purpose because hosts
// and users see and store these exact strings; 148 "Unknown"; 149 to 156: extended
// entries reachable only through an extended-genre switch that stays off.
const char16_t* const GenreNames[kGenreNameCount] = {
    /*   0 */ u"Blues", u"Classic Rock", u"Country", u"Dance", u"Disco", u"Funk",
    /*   6 */ u"Grunge", u"Hip-Hop", u"Jazz", u"Metal", u"New Age", u"Oldies",
    /*  12 */ u"Other", u"Pop", u"R&B", u"Rap", u"Reggae", u"Rock",
    /*  18 */ u"Techno", u"Industrial", u"Alternative", u"Ska", u"Death Metal", u"Pranks",
    /*  24 */ u"Soundtrack", u"Euro-tecno", u"Ambient", u"Trip-Hop", u"Vocal", u"Juzz+Funk",
    /*  30 */ u"Fusion", u"Trance", u"Classical", u"Instrumental", u"Acid", u"House",
    /*  36 */ u"Game", u"Sound Clip", u"Gospel", u"Noise", u"AlternRock", u"Bass",
    /*  42 */ u"Soul", u"Punk", u"Space", u"Meditative", u"Instrumental Pop", u"Instrumental Rock",
    /*  48 */ u"Ethnic", u"Gothic", u"Darkwave", u"Techno-Industrial", u"Electronic", u"Pop-Folk",
    /*  54 */ u"Eurodance", u"Dream", u"Southern Rock", u"Comedy", u"Cult", u"Gangsta",
    /*  60 */ u"Top 40", u"Christian Rap", u"Pop/Funk", u"Jungle", u"Native American", u"Cabaret",
    /*  66 */ u"New Wave", u"Psychadelic", u"Rave", u"Showtunes", u"Trailer", u"Lo-Fi",
    /*  72 */ u"Tribal", u"Acid Punk", u"Acid Jazz", u"Polka", u"Retro", u"Musical",
    /*  78 */ u"Rock & Roll", u"Hard Rock", u"Folk", u"Folk/Rock", u"National Folk", u"Swing",
    /*  84 */ u"Fast-Fusion", u"Bedob", u"Latin", u"Revival", u"Celtic", u"Bluegrass",
    /*  90 */ u"Avantagarde", u"Gothic Rock", u"Progressive Rock", u"Psychadelic Rock", u"Symphonic Rock", u"Slow Rock",
    /*  96 */ u"Big band", u"Chorus", u"Easy Listening", u"Acoustic", u"Humour", u"Speech",
    /* 102 */ u"Chanson", u"Opera", u"Chamber Music", u"Sonata", u"Symphony", u"Booty Bass",
    /* 108 */ u"Primus", u"Porn Groove", u"Satire", u"Slow Jam", u"Club", u"Tango",
    /* 114 */ u"Samba", u"Folklore", u"Ballad", u"Power Ballad", u"Rhytmic Soul", u"Freestyle",
    /* 120 */ u"Duet", u"Punk Rock", u"Drum Solo", u"Acapella", u"Euro-House", u"Dance Hall",
    /* 126 */ u"Goa", u"Drum & Bass", u"Club-House", u"Hardcore", u"Terror", u"Indie",
    /* 132 */ u"BritPop", u"Negerpunk", u"Polsk Punk", u"Beat", u"Christian Gangsta Rap", u"Heavy Metal",
    /* 138 */ u"Black Metal", u"Crossover", u"Contemporary Christian", u"Christian Rock", u"Merengue", u"Salsa",
    /* 144 */ u"Thrash Metal", u"Anime", u"JPop", u"Synthpop", u"Unknown", u"Heavy Rock(J)",
    /* 150 */ u"Doom Rock(J)", u"J-POP(J)", u"声優モノ", u"Tecno Ambient", u"萌え萌え☆彡", u"特撮モノ",
    /* 156 */ u"アニメもの",
};

// The APE tag code's table: GenreNames 0 to 147 with fourteen rows worded as the
// APE tag tools word them (25, 29, 81, 84, 85, 90, 93, 96, 118, 128, 133, 136, 140,
// 147).
const char16_t* const ApeGenreNames[kApeGenreNameCount] = {
    /*   0 */ u"Blues", u"Classic Rock", u"Country", u"Dance", u"Disco", u"Funk",
    /*   6 */ u"Grunge", u"Hip-Hop", u"Jazz", u"Metal", u"New Age", u"Oldies",
    /*  12 */ u"Other", u"Pop", u"R&B", u"Rap", u"Reggae", u"Rock",
    /*  18 */ u"Techno", u"Industrial", u"Alternative", u"Ska", u"Death Metal", u"Pranks",
    /*  24 */ u"Soundtrack", u"Euro-Techno", u"Ambient", u"Trip-Hop", u"Vocal", u"Jazz+Funk",
    /*  30 */ u"Fusion", u"Trance", u"Classical", u"Instrumental", u"Acid", u"House",
    /*  36 */ u"Game", u"Sound Clip", u"Gospel", u"Noise", u"AlternRock", u"Bass",
    /*  42 */ u"Soul", u"Punk", u"Space", u"Meditative", u"Instrumental Pop", u"Instrumental Rock",
    /*  48 */ u"Ethnic", u"Gothic", u"Darkwave", u"Techno-Industrial", u"Electronic", u"Pop-Folk",
    /*  54 */ u"Eurodance", u"Dream", u"Southern Rock", u"Comedy", u"Cult", u"Gangsta",
    /*  60 */ u"Top 40", u"Christian Rap", u"Pop/Funk", u"Jungle", u"Native American", u"Cabaret",
    /*  66 */ u"New Wave", u"Psychadelic", u"Rave", u"Showtunes", u"Trailer", u"Lo-Fi",
    /*  72 */ u"Tribal", u"Acid Punk", u"Acid Jazz", u"Polka", u"Retro", u"Musical",
    /*  78 */ u"Rock & Roll", u"Hard Rock", u"Folk", u"Folk-Rock", u"National Folk", u"Swing",
    /*  84 */ u"Fast Fusion", u"Bebop", u"Latin", u"Revival", u"Celtic", u"Bluegrass",
    /*  90 */ u"Avantgarde", u"Gothic Rock", u"Progressive Rock", u"Psychedelic Rock", u"Symphonic Rock", u"Slow Rock",
    /*  96 */ u"Big Band", u"Chorus", u"Easy Listening", u"Acoustic", u"Humour", u"Speech",
    /* 102 */ u"Chanson", u"Opera", u"Chamber Music", u"Sonata", u"Symphony", u"Booty Bass",
    /* 108 */ u"Primus", u"Porn Groove", u"Satire", u"Slow Jam", u"Club", u"Tango",
    /* 114 */ u"Samba", u"Folklore", u"Ballad", u"Power Ballad", u"Rhythmic Soul", u"Freestyle",
    /* 120 */ u"Duet", u"Punk Rock", u"Drum Solo", u"Acapella", u"Euro-House", u"Dance Hall",
    /* 126 */ u"Goa", u"Drum & Bass", u"Club House", u"Hardcore", u"Terror", u"Indie",
    /* 132 */ u"BritPop", u"Black Punk", u"Polsk Punk", u"Beat", u"Christian Gangsta", u"Heavy Metal",
    /* 138 */ u"Black Metal", u"Crossover", u"Contemporary C", u"Christian Rock", u"Merengue", u"Salsa",
    /* 144 */ u"Thrash Metal", u"Anime", u"JPop", u"SynthPop",
};

}  // namespace kxmp3
