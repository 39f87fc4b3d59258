/*
 * liblumenar: the SequenceCtl film player control for any host, in C.
 *
 * The library exports four functions. DllGetClassObject hands out a class factory; its
 * CreateInstance makes a SequenceCtl object. The object is placed in a window (one the host owns or
 * one the library makes), takes its properties, and plays the film named by File. It runs on the
 * thread that created its window (apartment model): the host calls every function of one object
 * from that thread and calls Pump there regularly; the library's own threads only ever wake Pump.
 *
 * Objects and the factory are reference counted: AddRef/Release, the object dies at count 0.
 * Every function returns LUM_S_OK (0) on success, LUM_S_FALSE (1) for "done, nothing to do",
 * or a negative LUM_E_* code. Text is UTF-8 and zero-terminated.
 */
#ifndef LUMENAR_LUMENAR_H
#define LUMENAR_LUMENAR_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t LumResult;
/* No exception thrown inside the library reaches the host: a function where one escapes returns
 * LUM_E_FAIL (0 from the counters and IsPlaying) after one line on stderr. */
#define LUM_S_OK ((LumResult)0)
#define LUM_S_FALSE ((LumResult)1)
#define LUM_E_FAIL ((LumResult)-1)              /* the operation failed (see the library's stderr line) */
#define LUM_E_INVALIDARG ((LumResult)-2)        /* a null pointer or a value outside the contract */
#define LUM_E_NOINTERFACE ((LumResult)-3)       /* unknown interface id */
#define LUM_E_CLASSNOTAVAILABLE ((LumResult)-4) /* unknown class id */
#define LUM_E_WRONGSTATE ((LumResult)-5)        /* e.g. CreateWindow twice, Pump without a window */
#define LUM_E_BUFFERTOOSMALL ((LumResult)-6)    /* *needed says how many bytes to pass */
#define LUM_E_NOTFOUND ((LumResult)-7)          /* property bag: no such name */
#define LUM_E_NOTBUILT ((LumResult)-8)          /* a feature this build does not have yet */

/* 128-bit identifiers, laid out like the classic GUID. */
typedef struct LumGuid
{
    uint32_t data1;
    uint16_t data2;
    uint16_t data3;
    uint8_t data4[8];
} LumGuid;

/* The SequenceCtl class, its interface, the class factory interface and the type library. */
#define LUM_CLSID_SEQUENCECTL                                                                                \
    {                                                                                                        \
        0x3f6a2c41u, 0x8d1e, 0x4b57,                                                                         \
        {                                                                                                    \
            0x9a, 0x0c, 0x5e, 0x71, 0xd2, 0x48, 0xb6, 0x13                                                   \
        }                                                                                                    \
    }
#define LUM_IID_ISEQUENCECTL                                                                                 \
    {                                                                                                        \
        0x3f6a2c42u, 0x8d1e, 0x4b57,                                                                         \
        {                                                                                                    \
            0x9a, 0x0c, 0x5e, 0x71, 0xd2, 0x48, 0xb6, 0x13                                                   \
        }                                                                                                    \
    }
#define LUM_IID_ICLASSFACTORY                                                                                \
    {                                                                                                        \
        0x00000001u, 0x0000, 0x0000,                                                                         \
        {                                                                                                    \
            0xc0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46                                                   \
        }                                                                                                    \
    }
#define LUM_LIBID_LUMENARLIB                                                                                 \
    {                                                                                                        \
        0x3f6a2c40u, 0x8d1e, 0x4b57,                                                                         \
        {                                                                                                    \
            0x9a, 0x0c, 0x5e, 0x71, 0xd2, 0x48, 0xb6, 0x13                                                   \
        }                                                                                                    \
    }

/* Dispatch ids of the properties, as property-change sinks see them. */
#define LUM_DISPID_BACKCOLOR (-501)
#define LUM_DISPID_FILLCOLOR (-510)
#define LUM_DISPID_READYSTATE (-525) /* sent once the last block of the film has arrived */
#define LUM_DISPID_FILE 1
/* Not a property: sent once per film played when the film cannot be completed (a download that fails,
 * a stream that is not a film or ends early, a film of another version, no usable temporary folder).
 * GetFailure gives the reason; the items that did arrive keep playing until the host stops. */
#define LUM_DISPID_FILMFAILED 2

/* Compatibility settings for SetCompatibility, all off unless a host asks for them.
 * LUM_COMPAT_EXIT_ON_CORRUPT_PHOTO: a photo corrupt in one of the two ways the player once ended its
 * process on (a coefficient run past the end of a block, no memory for a Huffman table) ends the
 * process with exit status 1 again, instead of being refused with a warning while the film plays on.
 * It applies to the whole process, every control in it. */
#define LUM_COMPAT_EXIT_ON_CORRUPT_PHOTO 0x1u

/* Commands a host may send (the same ones the context menu and the player's button send). */
#define LUM_COMMAND_PLAY 0x8008u
#define LUM_COMMAND_STOP 0x8009u

/* Host options for SetHostOptions, all off unless a host asks for them (not persisted).
 * LUM_HOST_FRAME_FILLS_WINDOW: the picture grows with the window instead of keeping its 800x600 frame
 * centred in a larger one. */
#define LUM_HOST_FRAME_FILLS_WINDOW 0x1u

/* Keys as key filters see them and SendKey takes them: letters are their upper-case character ('Q'). */
#define LUM_KEY_BACK 0x08
#define LUM_KEY_RETURN 0x0D
#define LUM_KEY_ESCAPE 0x1B
#define LUM_KEY_SPACE 0x20
#define LUM_KEY_PAGEUP 0x21
#define LUM_KEY_PAGEDOWN 0x22
#define LUM_KEY_LEFT 0x25
#define LUM_KEY_UP 0x26
#define LUM_KEY_RIGHT 0x27
#define LUM_KEY_DOWN 0x28
#define LUM_KEY_ADD 0x6B
#define LUM_KEY_SUBTRACT 0x6D
#define LUM_KEY_F11 0x7A
/* Modifiers held with a key. */
#define LUM_MOD_CTRL 0x1u
#define LUM_MOD_SHIFT 0x2u
#define LUM_MOD_ALT 0x4u

/* Where the control's window lives. */
typedef enum LumWindowKind
{
    LUM_WINDOW_OWN = 0,      /* the library makes a top-level SDL window (headless when no display) */
    LUM_WINDOW_HEADLESS = 1, /* the library makes a headless window: frames reach only the frame sink */
    LUM_WINDOW_SDL = 2,      /* the host's SDL_Window* (in `sdlWindow`); the library draws into it */
    LUM_WINDOW_X11 = 3       /* a native X11 window id (in `x11Window`); the library draws into it */
} LumWindowKind;

typedef struct LumSite
{
    uint32_t size;      /* sizeof(LumSite), for later growth */
    int32_t kind;       /* a LumWindowKind */
    void* sdlWindow;    /* LUM_WINDOW_SDL: an SDL_Window* made by the host's SDL2 */
    uint64_t x11Window; /* LUM_WINDOW_X11: the window id */
    int32_t width;      /* the control's size in pixels (0: the whole window, or 800x600 for OWN/HEADLESS) */
    int32_t height;
    const char* title;       /* OWN: the window title (NULL: "Lumenar") */
    const char* documentUrl; /* the host document's address that File is relative to (NULL: none) */
    int32_t userMode;        /* the ambient user mode: 1 plays, 0 is design mode (nothing is downloaded) */
} LumSite;

/* A property bag: name/value text pairs, read and written through the host's two functions.
 * Read copies the value of `name` with its terminator into `value` (capacity `capacity`) and sets
 * *needed to its length + 1; it returns LUM_E_NOTFOUND when the bag has no such name, and
 * LUM_E_BUFFERTOOSMALL (with *needed set) when the value does not fit. */
typedef struct LumPropertyBag
{
    void* context;
    LumResult (*Read)(void* context, const char* name, char* value, size_t capacity, size_t* needed);
    LumResult (*Write)(void* context, const char* name, const char* value);
} LumPropertyBag;

/* Called on the control's thread after a property changed (dispid as above). */
typedef void (*LumPropertyChanged)(void* context, int32_t dispid);

/* Called with every frame that reaches the window: BGRX bytes, top row first, rows width*4 bytes,
 * and the milliseconds since the window was made. Called on the thread that presented (a playback
 * thread): copy what you need and return quickly; the pointer is valid only during the call. */
typedef void (*LumFrameSink)(void* context, uint64_t ms, const uint8_t* bgrx, int32_t width, int32_t height);

/* Called on the control's thread with every key the viewer presses (or SendKey sends), before the
 * control sees it. Return non-zero to take the key: the control then never gets it. */
typedef int32_t (*LumKeyFilter)(void* context, int32_t key, uint32_t modifiers);

typedef struct LumSequenceCtl LumSequenceCtl;
typedef struct LumSequenceCtlVtbl
{
    uint32_t (*AddRef)(LumSequenceCtl* self);
    uint32_t (*Release)(LumSequenceCtl* self); /* at 0 destroys the window first */

    /* Makes the control's window (this thread becomes the control's thread) and starts playing File.
     * LUM_E_FAIL when the window cannot be made (e.g. "MMX required"). */
    LumResult (*CreateWindow)(LumSequenceCtl* self, const LumSite* site);
    /* Stops the film, ends every thread and deletes the temporary files; the object stays usable. */
    LumResult (*DestroyWindow)(LumSequenceCtl* self);
    /* Runs the control's messages, waiting up to timeoutMs for the first. LUM_S_OK while the window
     * is open; LUM_S_FALSE once the user closed it (or it was never made). */
    LumResult (*Pump)(LumSequenceCtl* self, uint32_t timeoutMs);
    /* LUM_COMMAND_PLAY or LUM_COMMAND_STOP, as if chosen from the context menu. */
    LumResult (*SendCommand)(LumSequenceCtl* self, uint32_t command);
    /* 1 while a session plays (not stopped), else 0. */
    int32_t (*IsPlaying)(LumSequenceCtl* self);

    LumResult (*SetFile)(LumSequenceCtl* self, const char* file);
    /* Copies File with its terminator; *needed = length + 1; LUM_E_BUFFERTOOSMALL when it does not fit. */
    LumResult (*GetFile)(LumSequenceCtl* self, char* buffer, size_t capacity, size_t* needed);
    LumResult (*SetBackColor)(LumSequenceCtl* self, uint32_t oleColor);
    LumResult (*GetBackColor)(LumSequenceCtl* self, uint32_t* oleColor);
    LumResult (*SetFillColor)(LumSequenceCtl* self, uint32_t oleColor);
    LumResult (*GetFillColor)(LumSequenceCtl* self, uint32_t* oleColor);

    /* Persistence: "_cx", "_cy", "BackColor", "FillColor", "File" as decimal or plain text values.
     * Load takes what the bag holds and keeps the rest. */
    LumResult (*LoadPropertyBag)(LumSequenceCtl* self, const LumPropertyBag* bag);
    LumResult (*SavePropertyBag)(LumSequenceCtl* self, const LumPropertyBag* bag);
    /* The same properties as one byte stream (the layout is in the README). Save: *needed = bytes. */
    LumResult (*LoadStream)(LumSequenceCtl* self, const uint8_t* bytes, size_t size);
    LumResult (*SaveStream)(LumSequenceCtl* self, uint8_t* buffer, size_t capacity, size_t* needed);
    /* The same properties in a compound file (structured storage) at `path`. */
    LumResult (*LoadStorage)(LumSequenceCtl* self, const char* path);
    LumResult (*SaveStorage)(LumSequenceCtl* self, const char* path);

    /* Change notification: BackColor, FillColor, the ready state and LUM_DISPID_FILMFAILED. *cookie
     * identifies the sink. */
    LumResult (*Advise)(LumSequenceCtl* self, LumPropertyChanged sink, void* context, uint32_t* cookie);
    LumResult (*Unadvise)(LumSequenceCtl* self, uint32_t cookie);
    /* Every presented frame goes to `sink` (NULL removes it). */
    LumResult (*SetFrameSink)(LumSequenceCtl* self, LumFrameSink sink, void* context);

    /* Why the film cannot be completed, as one line that follows the film's address ("404 Not Found",
     * "the film ends after 3 of 6 items"), with its terminator; *needed = length + 1. LUM_S_FALSE and
     * an empty text while nothing went wrong; LUM_E_BUFFERTOOSMALL when it does not fit. */
    LumResult (*GetFailure)(LumSequenceCtl* self, char* buffer, size_t capacity, size_t* needed);
    /* Switches the LUM_COMPAT_* settings in `flags` on and every other off. LUM_E_INVALIDARG for an
     * unknown flag (nothing changes then). */
    LumResult (*SetCompatibility)(LumSequenceCtl* self, uint32_t flags);

    /* Switches the LUM_HOST_* options in `flags` on and every other off; they take effect at the next
     * CreateWindow (LUM_E_WRONGSTATE while a window exists; LUM_E_INVALIDARG for an unknown flag). */
    LumResult (*SetHostOptions)(LumSequenceCtl* self, uint32_t flags);
    /* Every key goes to `filter` first (NULL removes it). */
    LumResult (*SetKeyFilter)(LumSequenceCtl* self, LumKeyFilter filter, void* context);
    /* A key as if the viewer pressed it: the key filter sees it first. LUM_E_WRONGSTATE without a window. */
    LumResult (*SendKey)(LumSequenceCtl* self, int32_t key, uint32_t modifiers);
    /* Full screen (1) or a window (0). Before CreateWindow it is a wish: a LUM_WINDOW_OWN window is then
     * made at the display's size, full screen. Afterwards it switches an own window, the picture keeping
     * its size and scaled to the screen; LUM_E_WRONGSTATE for a window the host made. */
    LumResult (*SetFullscreen)(LumSequenceCtl* self, int32_t on);
    /* 1 while full screen (or wished so before CreateWindow), else 0. */
    int32_t (*IsFullscreen)(LumSequenceCtl* self);
    /* 1 once the film has played to its end by itself (not stopped by a command), else 0. */
    int32_t (*HasEnded)(LumSequenceCtl* self);
} LumSequenceCtlVtbl;
struct LumSequenceCtl
{
    const LumSequenceCtlVtbl* vtbl;
};

typedef struct LumClassFactory LumClassFactory;
typedef struct LumClassFactoryVtbl
{
    uint32_t (*AddRef)(LumClassFactory* self);
    uint32_t (*Release)(LumClassFactory* self);
    /* iid: LUM_IID_ISEQUENCECTL; *object receives a LumSequenceCtl* with one reference. */
    LumResult (*CreateInstance)(LumClassFactory* self, const LumGuid* iid, void** object);
    LumResult (*LockServer)(LumClassFactory* self, int32_t lock);
} LumClassFactoryVtbl;
struct LumClassFactory
{
    const LumClassFactoryVtbl* vtbl;
};

/* The four exports. */
/* LUM_S_OK when no object, factory or server lock is alive, else LUM_S_FALSE. */
LumResult DllCanUnloadNow(void);
/* clsid: LUM_CLSID_SEQUENCECTL; iid: LUM_IID_ICLASSFACTORY; *object receives a LumClassFactory*. */
LumResult DllGetClassObject(const LumGuid* clsid, const LumGuid* iid, void** object);
/* Writes the class entries to the per-user registration store ($XDG_DATA_HOME/lumenar/registry)
 * and installs the desktop entry and the film mime type; DllUnregisterServer removes exactly them. */
LumResult DllRegisterServer(void);
LumResult DllUnregisterServer(void);

/* The function types, for dlsym. */
typedef LumResult (*LumDllGetClassObjectFn)(const LumGuid*, const LumGuid*, void**);
typedef LumResult (*LumDllFn)(void);

#ifdef __cplusplus
}
#endif

#endif /* LUMENAR_LUMENAR_H */
