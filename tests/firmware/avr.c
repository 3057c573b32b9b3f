/* Prints to the serial port, and ends the simulation when main is done. */
#include <avr/interrupt.h>
#include <avr/io.h>
#include <avr/sleep.h>
#include <stdio.h>

static int send(char c, FILE* stream) {
  (void)stream;
  while ((UCSR0A & (1 << UDRE0)) == 0) {
  }
  UDR0 = (uint8_t)c;
  return 0;
}

static FILE serial = FDEV_SETUP_STREAM(send, NULL, _FDEV_SETUP_WRITE);

__attribute__((constructor)) static void start(void) {
  UCSR0B = 1 << TXEN0;
  stdout = &serial;
}

__attribute__((destructor)) static void end(void) {
  cli();
  sleep_mode();
}
