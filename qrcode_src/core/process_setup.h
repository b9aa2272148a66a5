// Settings of the whole process that the service's output, threads and cost rely on.
#ifndef QRCODE_PROCESS_SETUP_H
#define QRCODE_PROCESS_SETUP_H

// Sets them; call once, first thing in main:
//   - standard output is line-buffered: a pipe or journal gets each line when it is printed;
//   - OpenCV starts no threads: there are the main thread and the listening thread, no others;
//   - the heap keeps the memory of a reading's pictures for the next reading (with glibc; another C
//     library is left as it is).
void Qrcode_SetUpProcess();

#endif
