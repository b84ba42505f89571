// Documents and tables for inspection; the main flow writes none of them.
#include <cstdlib>
#include <fstream>
#include <ostream>
#include <string>

#include "tracker/kscolortracker.h"

namespace {

constexpr int kCentreOffset = 2;  // Deliberate: centre of a 4-pixel cell, whatever the cell size (Dumps.TablesOfCells)

std::ofstream OpenTable(const char* fname) {
    return std::ofstream(std::string(fname) + ".txt");
}

}  // namespace

void ColorDiffTracker::OutputXML(std::ostream& fout) {
    fout << "<DETECTIONS>" << std::endl << "         <FRAME SEQ=\"" << t << "\">" << std::endl;
    for (int i = 0; i < numobjects; i++) {
        Object& ob = Ob[usedob[i]];
        if (ob.framenum != t || !ob.reportit) continue;
        const int w = ob.h.maxc - ob.h.minc + 1, h = ob.h.maxr - ob.h.minr + 1;
        fout << "               <OBJECT ID=\"" << ob.id << "\">" << std::endl
             << "                      <POSITION X=\"" << w / 2 + ob.h.minc << "\"  Y=\"" << h / 2 + ob.h.minr << "\"/>"
             << std::endl
             << "                      <SIZE W=\"" << w << "\"  H=\"" << h << "\"  A=\"" << ob.area << "\"/>"
             << std::endl
             << "               </OBJECT>" << std::endl;
        ob.reportit = false;
    }
    fout << "         </FRAME>" << std::endl << "</DETECTIONS>" << std::endl;
}

void ColorDiffTracker::OutputBackgroundImage(const char* name) {
    B->OutputBackgroundImage(name);
}

void ColorDiffTracker::WriteImageEdges(const char* fname) {
    std::ofstream out = OpenTable(fname);
    for (int k = 0; k < G->cnum; k++) {
        const KsCellDiff& c = G->cd[k];
        out << c.minr + kCentreOffset << "  " << c.minc + kCentreOffset << "  "
            << std::abs(c.Rx) + std::abs(c.Gx) + std::abs(c.Bx) << "  "
            << std::abs(c.Ry) + std::abs(c.Gy) + std::abs(c.By) << std::endl;
    }
}

void ColorDiffTracker::WriteImageDerivatives(const char* fname) {
    std::ofstream out = OpenTable(fname);
    for (int k = 0; k < G->cnum; k++) {
        const KsCellDiff& c = G->cd[k];
        out << c.minr + kCentreOffset << "  " << c.minc + kCentreOffset << "  " << c.der.Rx << "  " << c.der.Ry << "  "
            << c.der.Gx << "  " << c.der.Gy << "  " << c.der.Bx << "  " << c.der.By << std::endl;
    }
}
