// The one leak that the service has by design: the pack array of a successful snapshot.
extern "C" const char* __lsan_default_suppressions();

extern "C" const char* __lsan_default_suppressions()
{
    return "leak:FaceVenc_GetStream\n";
}
