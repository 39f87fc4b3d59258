/* A host written in C: loads liblumenar.so with dlopen, makes the control through its class factory,
 * plays a small film headless, checks properties, a property bag and the stream, learns that a film
 * that is not there cannot be completed, plays a film with a photo the player once ended its process on
 * (the host survives it and the film plays to its end), and tears down.
 *   server_host_test LIBRARY FILM DAMAGED_FILM */
#define _DEFAULT_SOURCE
#include "lumenar/lumenar.h"

#include <dlfcn.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static int failures = 0;
#define CHECK(cond)                                                                                          \
    do {                                                                                                     \
        if (!(cond)) {                                                                                       \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond);                         \
            ++failures;                                                                                      \
        }                                                                                                    \
    } while (0)

/* A bag of up to eight pairs. */
struct Bag
{
    char names[8][32];
    char values[8][256];
    int count;
};

static LumResult BagRead(void* context, const char* name, char* value, size_t capacity, size_t* needed)
{
    struct Bag* bag = (struct Bag*)context;
    for (int i = 0; i < bag->count; ++i) {
        if (strcmp(bag->names[i], name) != 0)
            continue;
        *needed = strlen(bag->values[i]) + 1;
        if (capacity < *needed)
            return LUM_E_BUFFERTOOSMALL;
        memcpy(value, bag->values[i], *needed);
        return LUM_S_OK;
    }
    return LUM_E_NOTFOUND;
}

static LumResult BagWrite(void* context, const char* name, const char* value)
{
    struct Bag* bag = (struct Bag*)context;
    if (bag->count == 8 || strlen(name) >= 32 || strlen(value) >= 256)
        return LUM_E_FAIL;
    strcpy(bag->names[bag->count], name);
    strcpy(bag->values[bag->count], value);
    ++bag->count;
    return LUM_S_OK;
}

static int changes[4];
static int changeCount = 0;
static void OnChanged(void* context, int32_t dispid)
{
    (void)context;
    if (changeCount < 4)
        changes[changeCount] = dispid;
    ++changeCount;
}

static atomic_int frames = 0; /* Counted on the presenting threads. */
static void OnFrame(void* context, uint64_t ms, const uint8_t* bgrx, int32_t width, int32_t height)
{
    (void)context;
    (void)ms;
    if (bgrx != NULL && width == 800 && height == 600)
        atomic_fetch_add(&frames, 1);
}

/* Takes F11 and lets every other key through, counting what it saw. */
static int filtered[4];
static int filteredCount = 0;
static int32_t OnKey(void* context, int32_t key, uint32_t modifiers)
{
    (void)context;
    if (filteredCount < 4)
        filtered[filteredCount] = key | (int)(modifiers << 16);
    ++filteredCount;
    return key == LUM_KEY_F11;
}

static double Seconds(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + now.tv_nsec / 1e9;
}

int main(int argc, char** argv)
{
    if (argc < 4) {
        fprintf(stderr, "usage: server_host_test LIBRARY FILM DAMAGED_FILM\n");
        return 2;
    }
    /* Kept mapped after dlclose: the sanitizers can then still name (and suppress) the process-wide
     * caches that the libraries it loads keep until exit. */
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library == NULL) {
        fprintf(stderr, "dlopen: %s\n", dlerror());
        return 1;
    }
    LumDllGetClassObjectFn getClassObject = (LumDllGetClassObjectFn)dlsym(library, "DllGetClassObject");
    LumDllFn canUnloadNow = (LumDllFn)dlsym(library, "DllCanUnloadNow");
    CHECK(getClassObject != NULL && canUnloadNow != NULL);
    CHECK(dlsym(library, "DllRegisterServer") != NULL && dlsym(library, "DllUnregisterServer") != NULL);
    /* Nothing but the four exports is visible. */
    CHECK(dlsym(library, "_ZN7lumenar7control11SequenceCtlC1Ev") == NULL);

    const LumGuid clsid = LUM_CLSID_SEQUENCECTL;
    const LumGuid factoryIid = LUM_IID_ICLASSFACTORY;
    const LumGuid controlIid = LUM_IID_ISEQUENCECTL;
    const LumGuid wrong = LUM_LIBID_LUMENARLIB;
    void* object = NULL;
    CHECK(getClassObject(&wrong, &factoryIid, &object) == LUM_E_CLASSNOTAVAILABLE && object == NULL);
    CHECK(getClassObject(&clsid, &wrong, &object) == LUM_E_NOINTERFACE && object == NULL);
    CHECK(getClassObject(&clsid, &factoryIid, &object) == LUM_S_OK && object != NULL);
    LumClassFactory* factory = (LumClassFactory*)object;
    CHECK(canUnloadNow() == LUM_S_FALSE);

    CHECK(factory->vtbl->CreateInstance(factory, &wrong, &object) == LUM_E_NOINTERFACE);
    CHECK(factory->vtbl->CreateInstance(factory, &controlIid, &object) == LUM_S_OK);
    LumSequenceCtl* ctl = (LumSequenceCtl*)object;
    CHECK(factory->vtbl->Release(factory) == 0);

    /* Properties: defaults, change notification, File only stored. */
    uint32_t colour = 7;
    CHECK(ctl->vtbl->GetBackColor(ctl, &colour) == LUM_S_OK && colour == 0);
    uint32_t cookie = 0;
    CHECK(ctl->vtbl->Advise(ctl, OnChanged, NULL, &cookie) == LUM_S_OK && cookie != 0);
    CHECK(ctl->vtbl->SetBackColor(ctl, 0x00123456u) == LUM_S_OK);
    CHECK(ctl->vtbl->SetFillColor(ctl, 0x00654321u) == LUM_S_OK);
    CHECK(ctl->vtbl->SetFile(ctl, argv[2]) == LUM_S_OK);
    CHECK(changeCount == 2 && changes[0] == LUM_DISPID_BACKCOLOR && changes[1] == LUM_DISPID_FILLCOLOR);
    char small[4];
    size_t needed = 0;
    CHECK(ctl->vtbl->GetFile(ctl, small, sizeof small, &needed) == LUM_E_BUFFERTOOSMALL);
    CHECK(needed == strlen(argv[2]) + 1);

    /* A property bag round trip, and a page's bag with a bad number that changes nothing. */
    struct Bag saved = {0};
    LumPropertyBag bag = {&saved, BagRead, BagWrite};
    CHECK(ctl->vtbl->SavePropertyBag(ctl, &bag) == LUM_S_OK && saved.count == 5);
    CHECK(strcmp(saved.names[0], "_cx") == 0 && strcmp(saved.names[4], "File") == 0);
    CHECK(strcmp(saved.values[2], "1193046") == 0); /* 0x123456 */
    struct Bag page = {{"BackColor"}, {"blue"}, 1};
    LumPropertyBag pageBag = {&page, BagRead, BagWrite};
    CHECK(ctl->vtbl->LoadPropertyBag(ctl, &pageBag) == LUM_E_FAIL);
    CHECK(ctl->vtbl->GetBackColor(ctl, &colour) == LUM_S_OK && colour == 0x00123456u);
    CHECK(ctl->vtbl->LoadPropertyBag(ctl, &bag) == LUM_S_OK);

    /* The stream form. */
    uint8_t stream[512];
    CHECK(ctl->vtbl->SaveStream(ctl, NULL, 0, &needed) == LUM_E_BUFFERTOOSMALL && needed < sizeof stream);
    CHECK(ctl->vtbl->SaveStream(ctl, stream, sizeof stream, &needed) == LUM_S_OK);
    CHECK(ctl->vtbl->LoadStream(ctl, stream, needed) == LUM_S_OK);
    CHECK(ctl->vtbl->LoadStream(ctl, stream, needed - 1) == LUM_E_FAIL);

    /* Play headless until frames arrive and the film has been fully received. */
    CHECK(ctl->vtbl->Pump(ctl, 0) == LUM_S_FALSE); /* no window yet */
    /* Host options and key sending before a window: options and the full-screen wish are kept. */
    CHECK(ctl->vtbl->SetHostOptions(ctl, 0x80) == LUM_E_INVALIDARG);
    CHECK(ctl->vtbl->SetHostOptions(ctl, LUM_HOST_FRAME_FILLS_WINDOW) == LUM_S_OK);
    CHECK(ctl->vtbl->SendKey(ctl, LUM_KEY_SPACE, 0) == LUM_E_WRONGSTATE);
    CHECK(ctl->vtbl->SetFullscreen(ctl, 1) == LUM_S_OK && ctl->vtbl->IsFullscreen(ctl) == 1);
    CHECK(ctl->vtbl->SetFullscreen(ctl, 0) == LUM_S_OK && ctl->vtbl->IsFullscreen(ctl) == 0);
    CHECK(ctl->vtbl->SetKeyFilter(ctl, OnKey, NULL) == LUM_S_OK);
    CHECK(ctl->vtbl->SetFrameSink(ctl, OnFrame, NULL) == LUM_S_OK);
    LumSite site;
    memset(&site, 0, sizeof site);
    site.size = sizeof site;
    site.kind = LUM_WINDOW_HEADLESS;
    site.userMode = 1;
    CHECK(ctl->vtbl->CreateWindow(ctl, &site) == LUM_S_OK);
    CHECK(ctl->vtbl->CreateWindow(ctl, &site) == LUM_E_WRONGSTATE);
    changeCount = 0;
    const double start = Seconds();
    while (Seconds() - start < 20 && (atomic_load(&frames) == 0 || changeCount == 0))
        CHECK(ctl->vtbl->Pump(ctl, 10) == LUM_S_OK);
    CHECK(atomic_load(&frames) > 0);
    CHECK(changeCount == 1 && changes[0] == LUM_DISPID_READYSTATE);
    CHECK(ctl->vtbl->IsPlaying(ctl) == 1);
    CHECK(ctl->vtbl->SetHostOptions(ctl, 0) == LUM_E_WRONGSTATE);
    /* Sent keys pass the filter first; the one it takes never reaches the control. */
    CHECK(ctl->vtbl->SendKey(ctl, LUM_KEY_F11, LUM_MOD_CTRL) == LUM_S_OK);
    CHECK(ctl->vtbl->SendKey(ctl, LUM_KEY_ESCAPE, 0) == LUM_S_OK);
    CHECK(ctl->vtbl->SendKey(ctl, 0x10000, 0) == LUM_E_INVALIDARG);
    CHECK(filteredCount == 2 && filtered[0] == (LUM_KEY_F11 | (int)(LUM_MOD_CTRL << 16)) &&
          filtered[1] == LUM_KEY_ESCAPE);
    CHECK(ctl->vtbl->SetFullscreen(ctl, 1) == LUM_S_OK && ctl->vtbl->IsFullscreen(ctl) == 1);
    CHECK(ctl->vtbl->SendCommand(ctl, LUM_COMMAND_STOP) == LUM_S_OK);
    CHECK(ctl->vtbl->SendCommand(ctl, 0x1234) == LUM_E_INVALIDARG);
    CHECK(ctl->vtbl->Pump(ctl, 0) == LUM_S_OK);
    CHECK(ctl->vtbl->IsPlaying(ctl) == 0);
    CHECK(ctl->vtbl->HasEnded(ctl) == 0); /* Stopped by the host, not by the film's end. */

    char reason[256];
    CHECK(ctl->vtbl->GetFailure(ctl, reason, sizeof reason, &needed) == LUM_S_FALSE && reason[0] == '\0');

    /* A film that is not there: the sink hears once that it cannot be completed, and why. */
    CHECK(ctl->vtbl->DestroyWindow(ctl) == LUM_S_OK);
    char missing[4096];
    snprintf(missing, sizeof missing, "%s.missing", argv[2]);
    CHECK(ctl->vtbl->SetFile(ctl, missing) == LUM_S_OK);
    changeCount = 0;
    CHECK(ctl->vtbl->CreateWindow(ctl, &site) == LUM_S_OK);
    const double failing = Seconds();
    while (Seconds() - failing < 10 && changeCount == 0)
        CHECK(ctl->vtbl->Pump(ctl, 10) == LUM_S_OK);
    CHECK(changeCount == 1 && changes[0] == LUM_DISPID_FILMFAILED);
    CHECK(ctl->vtbl->GetFailure(ctl, small, sizeof small, &needed) == LUM_E_BUFFERTOOSMALL && needed > 4);
    CHECK(ctl->vtbl->GetFailure(ctl, reason, sizeof reason, &needed) == LUM_S_OK);
    CHECK(strncmp(reason, "couldn't open file ", 19) == 0 && strlen(reason) + 1 == needed);

    /* A damaged photo: refused and reported, the host lives on and the film plays to its end. */
    CHECK(ctl->vtbl->SetCompatibility(ctl, 0x80) == LUM_E_INVALIDARG);
    CHECK(ctl->vtbl->SetCompatibility(ctl, 0) == LUM_S_OK);
    CHECK(ctl->vtbl->DestroyWindow(ctl) == LUM_S_OK);
    CHECK(ctl->vtbl->SetFile(ctl, argv[3]) == LUM_S_OK);
    atomic_store(&frames, 0);
    CHECK(ctl->vtbl->CreateWindow(ctl, &site) == LUM_S_OK);
    const double damaged = Seconds();
    while (Seconds() - damaged < 20 && ctl->vtbl->IsPlaying(ctl) == 1)
        CHECK(ctl->vtbl->Pump(ctl, 10) == LUM_S_OK);
    CHECK(ctl->vtbl->IsPlaying(ctl) == 0);
    CHECK(atomic_load(&frames) > 0);
    CHECK(ctl->vtbl->GetFailure(ctl, reason, sizeof reason, &needed) == LUM_S_FALSE);

    CHECK(ctl->vtbl->Unadvise(ctl, cookie) == LUM_S_OK);
    CHECK(ctl->vtbl->Unadvise(ctl, cookie) == LUM_E_INVALIDARG);
    CHECK(ctl->vtbl->DestroyWindow(ctl) == LUM_S_OK);
    CHECK(ctl->vtbl->DestroyWindow(ctl) == LUM_S_FALSE);
    CHECK(canUnloadNow() == LUM_S_FALSE);
    CHECK(ctl->vtbl->Release(ctl) == 0);
    CHECK(canUnloadNow() == LUM_S_OK);
    dlclose(library);
    if (failures == 0)
        printf("server host test passed\n");
    return failures == 0 ? 0 : 1;
}
