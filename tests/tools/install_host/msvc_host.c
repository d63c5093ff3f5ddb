/* Linked the way Microsoft's linker links a host: against PAXIMGUser.lib,
 * with no C runtime. Pure red in HSV is hue 0, full saturation and value;
 * the exit status 42 says so. */
typedef unsigned char BYTE;
__declspec(dllimport) BYTE *__stdcall RGBtoHSV(BYTE *dst, const BYTE *src);
__declspec(dllimport) void __stdcall ExitProcess(unsigned code);

void mainCRTStartup(void)
{
    const BYTE red[3] = {255, 0, 0};
    BYTE hsv[3];
    RGBtoHSV(hsv, red);
    ExitProcess(hsv[0] == 0 && hsv[1] == 255 && hsv[2] == 255 ? 42 : 1);
}
