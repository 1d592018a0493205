/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * A login service: the page that a client of one interface meets before it is logged in, and its button.
 *
 *	cc -o login_service login_service.c $(pkg-config --cflags --libs captiveportal)
 *	login_service wlan-1-1
 *
 * It listens where the module redirects HTTP of that interface. One client at a time, five seconds each.
 */
#include <arpa/inet.h>
#include <captiveportal.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

static const char page[] = "<form method=post action=/login><button>Log in</button></form>\n";

/* The hardware address of a neighbour, as the kernel has it. Returns 0 when there is none. */
static int find_mac(struct in_addr client, struct captiveportal_mac *mac)
{
	char address[16], hardware[18];
	int found = 0;
	FILE *neighbours = fopen("/proc/net/arp", "r");

	/* The first line has the names of the columns. */
	while (neighbours != NULL && !found && fscanf(neighbours, "%*[^\n]") == 0)
		found = fscanf(neighbours, "%15s %*s %*s %17s", address, hardware) == 2 &&
			inet_addr(address) == client.s_addr && captiveportal_parse_mac(hardware, mac) == 0;
	if (neighbours != NULL)
		fclose(neighbours);
	return found;
}

/* The device is held for this one change, so that other programs get it as well. Returns the library's result. */
static int change_login(const char *interface, const struct captiveportal_mac *mac, int log_in)
{
	struct captiveportal *portal;
	int result = captiveportal_open(NULL, 2000, &portal);
	if (result == 0)
		result = log_in ? captiveportal_add_client(portal, CAPTIVEPORTAL_LOGIN, interface, mac) :
				  captiveportal_delete_client(portal, CAPTIVEPORTAL_LOGIN, interface, mac);
	captiveportal_close(portal);
	return result;
}

static void answer(int connection, const char *interface, struct in_addr client)
{
	char request[4096] = "";
	struct captiveportal_mac mac;
	const struct timeval patience = {5, 0};
	const char *status = "200 OK", *body = page;

	setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
	if (read(connection, request, sizeof(request) - 1) <= 0)
		return;
	if (strncmp(request, "POST /login ", 12) == 0 || strncmp(request, "POST /logout ", 13) == 0) {
		int log_in = request[9] == 'i';
		body = log_in ? "You are logged in.\n" : "You are logged out.\n";
		if (!find_mac(client, &mac) || change_login(interface, &mac, log_in) < 0) {
			status = "503 Service Unavailable";
			body = "This did not work. Try again later.\n";
			fprintf(stderr, "login_service: %s: %s\n", inet_ntoa(client), captiveportal_error_text());
		}
	}
	dprintf(connection,
		"HTTP/1.1 %s\r\nContent-Type: text/html\r\nCache-Control: no-store\r\n"
		"Connection: close\r\nContent-Length: %zu\r\n\r\n%s",
		status, strlen(body), body);
}

int main(int count, char **words)
{
	const int reuse = 1;
	struct sockaddr_in here = {.sin_family = AF_INET}, client;
	int listener = socket(AF_INET, SOCK_STREAM, 0);
	uint32_t row;

	if (count != 2 || captiveportal_parse_interface(words[1], &row) != 0) {
		fprintf(stderr, "usage: login_service INTERFACE\n");
		return 1;
	}
	signal(SIGPIPE, SIG_IGN);
	here.sin_port = htons(captiveportal_http_port(row));
	setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse));
	if (bind(listener, (struct sockaddr *)&here, sizeof(here)) != 0 || listen(listener, 16) != 0)
		return perror("login_service"), 1;
	for (;;) {
		socklen_t size = sizeof(client);
		int connection = accept(listener, (struct sockaddr *)&client, &size);

		if (connection >= 0) {
			answer(connection, words[1], client.sin_addr);
			close(connection);
		}
	}
}
