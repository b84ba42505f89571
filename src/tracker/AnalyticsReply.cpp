// The reply to a detection frame.
#include <cmath>
#include <cstdio>
#include <iostream>
#include <string>

#include "tracker/kscolortracker.h"

namespace {

// Share of the box that the object covers, percent. Extended precision up to the single-precision rounding.
int Density(int area, int w, int h) {
    const long double percent = static_cast<long double>(area) / (w * h) * 100;
    return static_cast<int>(std::floor(static_cast<float>(percent)));
}

void AppendObject(std::string& outxml, int devid, int analyzerid, const Object& ob) {
    const int x = ob.h.minc, y = ob.h.minr;
    const int w = ob.h.maxc - ob.h.minc + 1, h = ob.h.maxr - ob.h.minr + 1;
    char text[160];  // two lines with at most eight 32-bit numbers
    std::snprintf(text, sizeof text,
                  "<OBJECT OID=\"%d.%d.%d\">\n<BOX X=\"%d\" Y=\"%d\" W=\"%d\" H=\"%d\" DENS=\"%d\"/>\n", devid,
                  analyzerid, ob.id, w / 2 + x, h / 2 + y, w, h, Density(ob.area, w, h));
    outxml += text;
    outxml += "<SHAPE>\n";
    // Deliberate: the vertices that the polygonal approximation kept are walked and written into the buffer, but not
    // into the document; every SHAPE is empty (Analytics.OneObjectOnce).
    int dot = 0;
    for (const ContNode* node = ob.fnode; node != nullptr && node->link != nullptr; node = node->link)
        if (node->keepnode)
            std::snprintf(text, sizeof text, "<DOT =\"%d\" X=\"%d\" Y=\"%d\"/>\n", ++dot, node->c, node->r);
    outxml += "</SHAPE>\n</OBJECT>";
}

}  // namespace

void OutputEmptyAnalytics(const char* timestamp, int seqnum, std::ostream& out) {
    out << "ANALYTICS.CARTRIDGE\r\nStatus: OK\r\nTimestamp:" << timestamp << "\r\nSequence-Number: " << seqnum
        << "\r\n\r\n";
}

void ColorDiffTracker::OutputAnalyticsXML(int& devid, char* timestamp, int& seqnum, int& analyzerid,
                                          std::ostream& out) {
    std::string outxml;
    bool detections = false;
    for (int i = 0; i < numobjects; i++) {
        Object& ob = Ob[usedob[i]];
        if (ob.framenum != t || !ob.reportit) continue;
        if (!detections) {
            outxml = "<ANALYTICS>\n<FRAME DEVID=\"" + std::to_string(devid) + "\" TIMESTAMP=\"";
            if (timestamp != nullptr) outxml += timestamp;
            outxml += "\" SEQ=\"" + std::to_string(seqnum) + "\"/>\n<TRACKING ANALYZERID=\"" +
                      std::to_string(analyzerid) + "\">";
        }
        PolygonalApproximation(ob.fnode, kPolygonTolerance);
        AppendObject(outxml, devid, analyzerid, ob);
        detections = true;
        ob.reportit = false;
    }
    if (!detections) {
        OutputEmptyAnalytics(timestamp, seqnum, out);
        return;
    }
    outxml += "</TRACKING>\n</ANALYTICS>\n";
    out << "ANALYTICS.CARTRIDGE\r\nStatus: OK\r\nContent-Length: " << outxml.size()
        << "\r\nContent-Type: text/xml \r\nTimestamp:" << timestamp << "\r\nSequence-Number: " << seqnum << "\r\n\r\n"
        << outxml;
}
